#ifndef COMPANIONS_GUARD_SAMPLER_H
#define COMPANIONS_GUARD_SAMPLER_H

/// @file
/// A thread takes a sample of its own stack, in the handler of a signal that it is sent for that.

#include "companions/guard/reactor_memory.h"
#include "companions/guard/sample.h"

#include <sys/types.h>

/// Take a real-time signal that nobody uses, once for the process: its handler stays. Returns the number of the signal,
/// or 0 when every real-time signal has a handler. Main thread.
int open_sampler();

/// Tell the handler where the reactor is. The guard's thread.
void set_reactor_memory(const Reactor_Memory& memory);

/// Have the thread `tid` take a sample of itself. Null if it does not answer within a moment, because it blocks the
/// signal, is not there or gets no processor. The result is valid until the next call. The guard's thread.
const Sample* take_sample(pid_t tid);

/// Send the thread `tid` of this process the signal `signo`. The guard's thread.
void signal_thread(pid_t tid, int signo);

#endif // COMPANIONS_GUARD_SAMPLER_H
