#ifndef COMPANIONS_CONTROL_THREADS_H
#define COMPANIONS_CONTROL_THREADS_H

#include "companions/common/program_note.h"

#include <nlohmann/json_fwd.hpp>

/// Take what the functions below need from the system, once for the process. False if every real-time signal has a
/// handler: then there are no back traces, and fewer threads are known to wait. Main thread.
bool prepare_threads();

/// The threads of the event loop, with their states, as the answer to "status" has them. A signal goes only to a thread
/// that waits for a lock, which goes on waiting. The thread of the control.
nlohmann::json describe_loop_threads(starter_loops_t loops);

/// The back traces of all threads, as the answer to "trace" has them. Each thread is interrupted by a signal for that,
/// unless it blocks the signal. The thread of the control.
nlohmann::json trace_threads();

#endif // COMPANIONS_CONTROL_THREADS_H
