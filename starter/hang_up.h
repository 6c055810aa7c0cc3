#ifndef STARTER_HANG_UP_H
#define STARTER_HANG_UP_H

/// @file
/// The hang-up: its record is written at once, wherever it arrives; services are reconfigured where that is safe, in
/// the main thread and in signal context.

/// The signal handler of the hang-up. Any thread.
void sig_reconfig(int signo);

/// Reconfigure the services if a hang-up has left that to the main thread: one that arrived while services were loaded
/// or a callback ran. Main thread, between two callbacks; only with a reactor.
void serve_hang_ups();

#endif // STARTER_HANG_UP_H
