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

/// Tell how many reconfigurations have begun and how many of these have ended since the start of the process, those
/// included that were refused because a file cannot be read. One after the other, so that the numbers differ by at most
/// one. `ended` is read before `begun`: one that began after a call ends later than at the number that was told then.
///
/// The function is not exported. A service finds it by a note of the executable of the type 3, as it finds
/// starter_loops(). Any thread, in signal handlers too.
extern "C" void starter_reloads(unsigned* begun, unsigned* ended);

#endif // STARTER_HANG_UP_H
