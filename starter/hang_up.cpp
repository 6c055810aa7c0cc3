#include "starter/hang_up.h"

#include "scrt/log.h"
#include "starter/configuration.h"
#include "starter/host_phase.h"
#include "starter/interrupted.h"
#include "starter/loop_control.h"
#include "starter/service_repository.h"
#include "starter/signal_timer.h"
#include "starter/signals.h"

#include <ace/Log_Msg.h>
#include <ace/Service_Config.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <pthread.h>

enum { PATIENCE_MSEC = 1000 }; // for a callback that keeps a reconfiguration waiting

// Only the main thread and its signal handlers touch these.
static volatile std::sig_atomic_t is_due;    // a reconfiguration
static volatile std::sig_atomic_t is_raised; // the hang-up at hand, by the main thread itself
static Signal_Timer patience(SIGHUP);

// Hang-ups of other threads that the main thread has not been told of yet.
static std::atomic<int> passed_on;

static std::atomic<unsigned> begun_reloads;
static std::atomic<unsigned> ended_reloads;

static void log_hang_up(int signo)
{
  const Handler_Memory_Guard memory;

  LOG_RECORD(LM_INFO, "Signal %d (%s) caught, and reconfiguring ... \n", signo, strsignal(signo));
}

// Without the reserve of memory: services outlive the signal handler.
static void reconfigure()
{
  is_due = 0;
  if (is_termination_caught())
    return; // services are finalised next, and none is initialised any more
  ++begun_reloads;
  if (is_reload_possible())
    ACE_Service_Config::reconfigure();
  ++ended_reloads;
}

// The loop comes to it after the callback that runs. One that does not end within a second is interrupted.
static void leave_to_loop()
{
  if (is_due)
    return;

  is_due = 1;
  if (leave_event_loop())
    patience.start(PATIENCE_MSEC);
  else
    reconfigure(); // this kind of loop cannot be left
}

static void handle_hang_up()
{
  switch (get_host_phase()) {
  case NOT_STARTED:
    reconfigure();
    break;
  case LOADING:
  case SPAWNING:
  case POOL_PAUSE:
    is_due = 1;
    break;
  case LOOP_PAUSE:
    is_due = 1;
    (void)leave_event_loop(); // the loop counts as left until the services have been reconfigured
    break;
  case LOOP:
    leave_to_loop();
    break;
  case POOL:
    reconfigure(); // the main thread only waits for the pool
    pack_service_repository();
    break;
  case ENDING:
    break;
  }
}

static void handle_in_main_thread(int signo)
{
  // One that another thread has passed on has its record. Its signal may have become one with the other two kinds,
  // which the main thread sends to itself: whatever the signal at hand is, it serves what was passed on.
  const bool is_passed_on = passed_on.exchange(0) > 0;

  if (is_raised) {
    is_raised = 0;
    reconfigure();
    return;
  }
  if (patience.has_rung()) {
    stay_in_event_loop();
    if (is_due) {
      reconfigure();
      return;
    }
    if (!is_passed_on)
      return;
  } else if (!is_passed_on)
    log_hang_up(signo);

  if (!is_termination_caught())
    handle_hang_up();
}

void sig_reconfig(int signo)
{
  const ACE_Errno_Guard guard(errno);
  const Interrupted_Record interrupted; // init and fini log as well

  if (is_main_thread()) {
    handle_in_main_thread(signo);
    return;
  }

  log_hang_up(signo);
  if (passed_on++ == 0)
    signal_main_thread(signo);
}

// Reconfigures in signal context, as everywhere else: the signal is held back from the thread while services load.
static void raise_hang_up()
{
  sigset_t hang_up;
  sigset_t old_mask;
  sigemptyset(&hang_up);
  sigaddset(&hang_up, SIGHUP);

  (void)pthread_sigmask(SIG_BLOCK, &hang_up, &old_mask); // cannot fail with these arguments
  is_raised = 1;
  (void)raise(SIGHUP); // comes before those that are sent to the whole process
  (void)pthread_sigmask(SIG_UNBLOCK, &hang_up, nullptr);
  (void)pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);

  if (is_raised) // a service has taken the signal over
    is_raised = is_due = 0;
}

void serve_hang_ups()
{
  // In this order: a hang-up that comes between the two has the loop left again.
  for (stay_in_event_loop(); is_due; stay_in_event_loop()) {
    const Service_Pause pause;
    patience.stop();
    raise_hang_up();
    pack_service_repository();
    if (!has_loop_threads())
      forget_stale_event();
  }
}

void starter_reloads(unsigned* begun, unsigned* ended)
{
  *ended = ended_reloads;
  *begun = begun_reloads;
}

// The note that leads services to the function: see starter/loop_turns.cpp.
asm(R"(
  .pushsection .note.starter, "a", @note
  .balign 4
  .long 8, 8, 3
  .asciz "starter"
0:
  .quad starter_reloads - 0b
  .popsection
)");
