#ifndef COMPANIONS_GUARD_STALLS_H
#define COMPANIONS_GUARD_STALLS_H

/// @file
/// The records about threads that hang. The guard's thread.

#include "companions/guard/sample.h"

#include <sys/types.h>

/// Write the record that the thread `tid` of this name hangs and has done so for `msec` milliseconds, unless there have
/// been five such records within a minute. `sample` is null for a thread that has not taken one. With `counts`, the
/// record tells how many stalls there have been in this process. Returns whether the record was written.
bool report_stall(pid_t tid, const char* thread_name, long msec, const Sample* sample, bool counts);

/// Write the record that the thread `tid` does not hang any more after `msec` milliseconds.
void report_return(pid_t tid, const char* thread_name, long msec);

#endif // COMPANIONS_GUARD_STALLS_H
