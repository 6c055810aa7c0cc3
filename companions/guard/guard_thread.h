#ifndef COMPANIONS_GUARD_GUARD_THREAD_H
#define COMPANIONS_GUARD_GUARD_THREAD_H

#include "companions/guard/watch.h"

/// Watch the loop threads in a thread of the guard's own. Returns 0, or -1 with errno. Main thread, in signal handlers
/// too; only while no thread of the guard runs.
int start_guard_thread(const Watch_Options& options, starter_loops_t loops);

/// End the thread, and wait for its end, but for a second at most: it may wait for a lock of the log, which the
/// interrupted thread holds. Then it ends when it gets this lock. What it knows of threads that hang is kept for the
/// next start. Main thread, in signal handlers too.
void stop_guard_thread();

#endif // COMPANIONS_GUARD_GUARD_THREAD_H
