#ifndef STARTER_LOOP_TURNS_H
#define STARTER_LOOP_TURNS_H

class ACE_Reactor;

/// Run the loop of `reactor` in the calling thread until the loop returns, and count its turns for starter_loops().
void run_counted_loop(ACE_Reactor& reactor);

/// Tell which threads are in the event loop, and how many turns each has made. The count of a thread changes whenever a
/// turn ends: in a turn the reactor waits and then calls event handlers, one with the kinds tp and dev_poll, any
/// number with the others. A thread that enters the loop again may differ in its count only.
///
/// Fills the first elements of `tids` and `turns` with the thread ids and counts of at most `size` threads, and returns
/// how many these are. The program counts for 1024 threads, and further ones are left out.
///
/// The function is not exported. A service that watches the loop finds it by a note of the executable (see elf(5)) of
/// the name "starter" and the type 1, whose descriptor of 8 bytes is the distance from itself to the function. A
/// program that is older has no such note. Any thread, in signal handlers too.
extern "C" unsigned starter_loops(int* tids, unsigned long* turns, unsigned size);

#endif // STARTER_LOOP_TURNS_H
