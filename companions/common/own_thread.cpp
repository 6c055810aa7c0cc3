#include "companions/common/own_thread.h"

#include <csignal>
#include <initializer_list>

Signals_Blocked::Signals_Blocked()
{
  sigset_t all_but_faults;
  sigfillset(&all_but_faults);
  for (const int fault : {SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGABRT})
    sigdelset(&all_but_faults, fault);
  (void)pthread_sigmask(SIG_SETMASK, &all_but_faults, &before_); // cannot fail with these arguments
}

Signals_Blocked::~Signals_Blocked()
{
  (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int make_own_thread(pthread_t& thread, void* (*run)(void*), void* arg)
{
  const Signals_Blocked blocked;
  return pthread_create(&thread, nullptr, run, arg);
}
