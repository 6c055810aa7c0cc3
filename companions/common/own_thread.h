#ifndef COMPANIONS_COMMON_OWN_THREAD_H
#define COMPANIONS_COMMON_OWN_THREAD_H

#include <pthread.h>
#include <signal.h>

/// Blocks all signals but the fault signals in the calling thread as long as the object lives. Threads that are made
/// meanwhile begin with this mask, so that no signal handler of the program runs in them.
class Signals_Blocked
{
public:
  Signals_Blocked();
  ~Signals_Blocked();

  Signals_Blocked(const Signals_Blocked&) = delete;
  Signals_Blocked& operator=(const Signals_Blocked&) = delete;

private:
  sigset_t before_;
};

/// Make a thread that calls `run` with `arg` and has all signals blocked but the fault signals. Returns 0, or the error
/// of pthread_create(3). Any thread, in signal handlers of the main thread too.
int make_own_thread(pthread_t& thread, void* (*run)(void*), void* arg);

#endif // COMPANIONS_COMMON_OWN_THREAD_H
