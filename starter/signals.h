#ifndef STARTER_SIGNALS_H
#define STARTER_SIGNALS_H

/// Install the process's signal dispositions. Main thread, once, before any service is loaded. Reports nothing.
void init_signal_handlers();

/// Whether a termination signal has been caught. Any thread, in signal handlers too.
bool is_termination_caught();

/// End the loop of the process-wide reactor if a termination that was caught before has not found it. From here on a
/// termination signal ends the loop itself. Main thread, outside of signal handlers, right before the loop runs; makes
/// the reactor if there is none.
void serve_terminations();

#endif // STARTER_SIGNALS_H
