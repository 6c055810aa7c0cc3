#ifndef STARTER_MAIN_CALL_H
#define STARTER_MAIN_CALL_H

/// @file
/// A service has a function called in the main thread where the services are reconfigured for a hang-up.

/// Have the main thread call `function` with `argument` once: between two callbacks of a single loop, or, with a pool,
/// while the main thread waits for the threads that run the loop. There, as in a reload, these threads may be in
/// callbacks. A hang-up that arrives during the call is served right after it. Nothing is called after a termination.
/// Returns 1, or 0 if another call waits, or if the loop is of a kind that cannot be left.
///
/// Without a function, the call that waits is withdrawn: returns 1 if there was one, which is not made any more, and 0
/// if there was none, or if it has begun.
///
/// The function is not exported. A service finds it by a note of the executable of the type 4, as it finds
/// starter_loops(). Any thread, not in signal handlers; takes no lock.
extern "C" int starter_call(void (*function)(void*), void* argument);

/// Make the call that waits, if there is one. False if there was none: otherwise a hang-up may have become due. Main
/// thread, in the phases LOOP and POOL.
bool serve_main_call();

/// Wait until a call waits, a signal arrives or wake_main_thread() has been called. Main thread.
void rest_main_thread();

/// End the wait of the main thread, or its next one. Any thread, in signal handlers too.
void wake_main_thread();

#endif // STARTER_MAIN_CALL_H
