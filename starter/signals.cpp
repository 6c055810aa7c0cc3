#include "starter/signals.h"

#include "scrt/log.h"
#include "starter/fault.h"
#include "starter/hang_up.h"
#include "starter/host_phase.h"
#include "starter/interrupted.h"
#include "starter/loop_control.h"
#include "starter/signal_timer.h"
#include "starter/thread_name.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/Signal.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <execinfo.h>

static constexpr long MAX_LOOK_MSEC = 1000;

static std::atomic<bool> is_terminating;
static std::sig_atomic_t finished; // 1 from the first termination that found the event loop running

// While services are loaded, one of them may make the reactor, or run its loop: a loop that begins to wait just after
// it was marked as done is not woken by that. The main thread looks for both until loading is over.
static Signal_Timer next_look(SIGTERM);
static long look_msec = 10;

bool is_termination_caught()
{
  return is_terminating;
}

static void look_for_loop()
{
  if (has_reactor() && !is_loop_ended())
    end_event_loop();

  if (get_host_phase() != LOADING)
    return;
  next_look.start(look_msec);
  look_msec = std::min(2 * look_msec, MAX_LOOK_MSEC); // services that block get fewer and fewer interruptions
}

static void terminate_loop()
{
  if (finished != 0)
    return;
  if (has_reactor() && is_loop_ended())
    return;

  finished = 1;
  look_for_loop();
}

static void sig_terminate(int signo)
{
  const ACE_Errno_Guard guard(errno);
  if (signo == SIGTERM && is_main_thread() && next_look.has_rung()) {
    look_for_loop();
    return;
  }

  const Handler_Memory_Guard memory;
  const Interrupted_Record interrupted;
  char thread_name[THREAD_NAME_SIZE];
  get_thread_name(thread_name);

  LOG_RECORD(LM_INFO, "Signal %d (%s) caught in [%s].\n", signo, strsignal(signo), thread_name);

  is_terminating = true;
  terminate_loop();
}

void serve_terminations()
{
  next_look.stop();

  if (finished != 0 && !is_loop_ended())
    end_event_loop();
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

  look_up_thread_names(); // before the first disposition is installed, so that every handler sees the result
  void* frame;
  (void)backtrace(&frame, 1); // the first back trace loads a library, which no signal handler should

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
