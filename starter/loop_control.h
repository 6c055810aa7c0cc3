#ifndef STARTER_LOOP_CONTROL_H
#define STARTER_LOOP_CONTROL_H

/// @file
/// The operations on the event loop of the process-wide reactor that signal handlers may use. Unless told otherwise:
/// any thread, in signal handlers too; nothing here takes a lock or memory, because the interrupted thread may hold the
/// lock.

/// Whether the process has its reactor yet. Makes none.
bool has_reactor();

/// Whether the loop is done. One that is only left for a while is not. Only with a reactor.
bool is_loop_ended();

/// Mark the loop as done, so that every thread that runs it returns from it, and wake the thread that waits in it.
/// Only with a reactor.
void end_event_loop();

/// Have the loop left after the callback that runs, and woken if none does. The loop is not done: whoever runs it
/// calls stay_in_event_loop() and runs on. False when the reactor is of a kind that is not known here. Only with a
/// reactor.
bool leave_event_loop();

/// Take back leave_event_loop(), not the end of the loop. Only with a reactor.
void stay_in_event_loop();

/// Have the loop forget an event that it has fetched and not dispatched, if its descriptor is not ready any more: it
/// was closed, and its number given out again, when the services were reconfigured. Main thread, while nobody runs the
/// loop.
void forget_stale_event();

/// Make the process-wide reactor listen to the functions above: register with it what they wake the loop with, and
/// bound the notifications that it serves before it looks at its mark again. If registering fails, the framework's own
/// notification serves, whose lock can hang a signal handler. May be called again, for instance after a service
/// has replaced the reactor. Main thread, between two callbacks; takes memory and locks.
void hang_bell();

#endif // STARTER_LOOP_CONTROL_H
