#ifndef STARTER_SIGNALS_H
#define STARTER_SIGNALS_H

/// Where the start-up, or the end, of the process is.
enum Host_Phase { NOT_STARTED, SINGLE, POOL };

/// Tell the signal handlers what the calling thread, the main one, does from now on: it loads services and runs a
/// loop, or it waits for a pool.
void set_host_phase(Host_Phase phase);

/// Whether a termination was caught that has ended the loop, or will.
bool is_termination_caught();

/// Install the process's signal dispositions. Main thread, once, before any service is loaded. Reports nothing.
void init_signal_handlers();

#endif // STARTER_SIGNALS_H
