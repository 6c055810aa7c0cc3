#include "starter/signals.h"

#include "scrt/log.h"
#include "starter/event_loop.h"
#include "starter/fault.h"
#include "starter/interrupted.h"
#include "starter/thread_name.h"

#include <ace/ACE.h>
#include <ace/Reactor.h>
#include <ace/Service_Config.h>
#include <ace/Signal.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iterator>

#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>

enum { MAX_POSTPONEMENTS = 1000 };

static std::sig_atomic_t finished; // 1 from the first termination that found the event loop running

static std::atomic<Host_Phase> host_phase{NOT_STARTED};
static pthread_t main_thread; // set before the phase

void set_host_phase(Host_Phase phase)
{
  main_thread = pthread_self();
  host_phase = phase;
}

bool is_termination_caught()
{
  return finished != 0;
}

static void sig_terminate(int signo)
{
  const ACE_Errno_Guard guard(errno);
  const Handler_Memory_Guard memory;
  const Interrupted_Record interrupted;
  char thread_name[THREAD_NAME_SIZE];
  get_thread_name(thread_name);

  LOG_RECORD(LM_INFO, "Signal %d (%s) caught in [%s].\n", signo, strsignal(signo), thread_name);

  if (finished != 0)
    return;
  if (!has_reactor()) {
    finished = 1; // main ends the loop of the reactor that comes
    return;
  }
  if (!ACE_Reactor::instance()->reactor_event_loop_done()) {
    finished = 1;
    end_event_loop();
  }
}

// Whether the handler that calls this has interrupted a reactor's wait. Anywhere else the thread may be changing what a
// reconfiguration needs: the heap, or the reactor, which also lets most signals through just where it holds a lock.
static bool interrupts_wait()
{
  void* frames[6]; // this function, the handler, the return from it and what was interrupted, with room to spare
  const int count = backtrace(frames, static_cast<int>(std::size(frames)));

  for (int i = 0; i < count; ++i) {
    Dl_info info;
    if (dladdr(frames[i], &info) != 0 && info.dli_sname &&
        (std::strstr(info.dli_sname, "select") || std::strstr(info.dli_sname, "epoll_wait")))
      return true;
  }
  return false;
}

// Have the signal sent to the process once more, in a millisecond. False when there is no timer to be had for it.
static bool send_again(int signo)
{
  static timer_t timer; // one for all times: signals that wait are one signal
  static bool is_made = false;

  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = signo;
  is_made = is_made || timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;

  itimerspec when = {};
  when.it_value.tv_nsec = 1000000;
  return is_made && timer_settime(timer, 0, &when, nullptr) == 0;
}

static void sig_reconfig(int signo)
{
  static int postponements = 0; // of the reconfiguration at hand, a millisecond each
  const ACE_Errno_Guard guard(errno);

  // Reconfigured while it is somewhere in its work, a thread may wait for itself. The main thread of a pool is not; a
  // single loop is soon back at its wait, and one that does not come back is not waited for.
  if (host_phase == POOL && !pthread_equal(pthread_self(), main_thread)) {
    (void)pthread_kill(main_thread, signo); // it is there as long as the pool is
    return;
  }
  if (host_phase == SINGLE && postponements < MAX_POSTPONEMENTS && !interrupts_wait() && send_again(signo)) {
    ++postponements;
    return;
  }
  postponements = 0;

  const Interrupted_Record interrupted; // by services too
  {
    const Handler_Memory_Guard memory; // not for the services: they stay
    LOG_RECORD(LM_INFO, "Signal %d (%s) caught, and reconfiguring ... \n", signo, strsignal(signo));
  }
  ACE_Service_Config::reconfigure();
}

static void sig_usr2(int)
{
  const ACE_Errno_Guard guard(errno);
  const Handler_Memory_Guard memory;
  const Interrupted_Record interrupted;
  const bool on = ACE::debug();

  LOG_RECORD(LM_INFO, "%s ACE::debug.\n", on ? "Disable" : "Enable");
  ACE::debug(!on);
}

void init_signal_handlers()
{
  sigset_t* const no_mask = nullptr;
  ACE_Sig_Set sset(false);

  look_up_thread_names();  // before the first disposition is installed, so that every handler sees the result
  (void)interrupts_wait(); // the first back trace loads a library, which is no work for a handler

  sset.sig_add(SIGINT);
  sset.sig_add(SIGQUIT);
  sset.sig_add(SIGTERM);
  const ACE_Sig_Action term_action(sset, sig_terminate, no_mask, 0);

  sset.empty_set();
  for (const int fault : FAULT_SIGNALS)
    sset.sig_add(fault);
  const ACE_Sig_Action abnormal_term_action(sset, sig_abnormal_terminate, no_mask, 0);

  sset.empty_set();
  sset.sig_add(SIGHUP);
  const ACE_Sig_Action reconfig_action(sset, sig_reconfig, no_mask, 0);

  sset.empty_set();
  sset.sig_add(SIGUSR2);
  const ACE_Sig_Action toggle_debug_action(sset, sig_usr2, no_mask, 0);

  sset.empty_set();
  sset.sig_add(SIGPIPE);
  sset.sig_add(SIGIO);
  sset.sig_add(SIGURG);
  const ACE_Sig_Action ignore_action(sset, SIG_IGN, no_mask, 0);
}
