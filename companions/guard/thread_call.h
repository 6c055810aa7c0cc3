#ifndef COMPANIONS_GUARD_THREAD_CALL_H
#define COMPANIONS_GUARD_THREAD_CALL_H

#include "companions/guard/sampler.h"

#include <cstdint>

#include <sys/types.h>

/// The thing that a thread does, as far as the system tells it to others.
enum class Doing {
  WAITS_FOR_EVENTS, ///< in the wait of the reactor
  BLOCKS,           ///< in some other system call
  RUNS              ///< or the system does not tell
};

struct Thread_Call
{
  Doing doing;
  std::uint64_t key; ///< the same as long as the thread blocks at one place; 0 if the system does not tell
};

/// Ask the system what the thread `tid` does. The process may have given up the right to ask: it does so when it
/// switches its user. Then the thread runs, and has a key that changes when it runs and at no other time.
/// Takes no lock and no memory. Any thread.
Thread_Call read_thread_call(pid_t tid, const Reactor_Memory& reactor);

enum { NAME_SIZE = 16 }; // with the NUL that ends it

/// Read the name of the thread `tid`, "unknown" if the system does not tell. Takes no lock and no memory. Any thread.
void read_thread_name(pid_t tid, char (&name)[NAME_SIZE]);

#endif // COMPANIONS_GUARD_THREAD_CALL_H
