#ifndef COMPANIONS_GUARD_STALLS_H
#define COMPANIONS_GUARD_STALLS_H

/// @file
/// The threads that hang: the records about them, which the guard's thread writes, and their numbers, for any thread.

#include "companions/guard/sample.h"

#include <sys/types.h>

/// The thread `tid` of this name hangs: count the stall, and write the record that the thread has hung for `msec`
/// milliseconds, unless there have been five such records within a minute. `sample` is null for a thread that has not
/// taken one. With `counts`, the record tells how many stalls there have been in this process. Returns whether the
/// record was written.
bool report_stall(pid_t tid, const char* thread_name, long msec, const Sample* sample, bool counts);

/// The thread `tid` does not hang any more after `msec` milliseconds. Writes the record about that if `is_recorded`:
/// report_stall() has returned true for this stall.
void report_return(pid_t tid, const char* thread_name, long msec, bool is_recorded);

/// How often report_stall() has been called in this process, and how many of these threads have not returned since. Any
/// thread, in signal handlers too.
unsigned long count_stalls();
unsigned count_stalled_threads();

#endif // COMPANIONS_GUARD_STALLS_H
