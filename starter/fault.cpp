#include "starter/fault.h"

#include "scrt/log.h"
#include "starter/interrupted.h"
#include "starter/loop_control.h"
#include "starter/thread_name.h"

#include <ace/Reactor.h>
#include <ace/Thread_Manager.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <pthread.h>
#include <unistd.h>

enum { FAULT_GUARD_SEC = 5 };

// The fault that ends the process: its thread, 0 while there is none, what it was, whether that has been logged, and
// how often that has been tried without a back trace.
static std::atomic<pid_t> faulting_thread;
static int fault_signo;
static char fault_thread_name[THREAD_NAME_SIZE];
static std::atomic<bool> fault_logged;
static std::atomic<int> short_records;

// The record without the framework: the thread that hangs may hold the lock of the log, as one does that faulted while
// it was being made and got a log of its own. Nothing here takes a lock or memory.
static void write_fault()
{
  char text[128];
  const int len = std::snprintf(text, sizeof text, "Signal %d (%s) caught in [%s], the back trace:\n.\n", fault_signo,
                                sigdescr_np(fault_signo), fault_thread_name);
  (void)!::write(STDERR_FILENO, text, static_cast<std::size_t>(len)); // nothing is left to be done about it
}

// The first fault of the process writes the record and leaves; this is where every later one ends. It waits for that,
// unless it shows that the first one cannot get on: it is on the same thread, or it is the alarm.
[[noreturn]] static void give_up_fault(int signo)
{
  if (faulting_thread != gettid() && signo != SIGALRM)
    for (;;)
      pause();

  // Most likely the fault is the allocator's, and the back trace, which allocates, waits for its lock.
  const int tried = fault_logged ? 2 : short_records++;
  if (tried == 0 && faulting_thread == gettid()) {
    (void)alarm(1); // should this record hang too
    LOG_RECORD(LM_ALERT, "Signal %d (%s) caught in [%s], the back trace:\n.\n", fault_signo, strsignal(fault_signo),
               fault_thread_name);
    fault_logged = true;
  } else if (tried < 2)
    write_fault();
  _exit(0);
}

// Whatever the record and the exit run into, the process ends: another fault of this thread gets through to its
// handler, the same signal included, and the alarm comes when nothing else does.
static void guard_fault()
{
  sigset_t faults;
  sigemptyset(&faults);
  for (const int fault : FAULT_SIGNALS)
    sigaddset(&faults, fault);

  (void)pthread_sigmask(SIG_UNBLOCK, &faults, nullptr); // cannot fail with these arguments
  (void)alarm(FAULT_GUARD_SEC);                         // nobody else's alarm matters any more
}

// The exit handlers take the framework down while loop threads still run. What those stand on stays as it is: taken
// away, it makes them fault too, with locks that the exit waits for.
static void keep_loop_standing()
{
  if (has_reactor())
    ACE_Reactor::instance(ACE_Reactor::instance(), false);
  ACE_Thread_Manager::instance(ACE_Thread_Manager::instance()); // what is set this way is not deleted
}

void sig_abnormal_terminate(int signo)
{
  const Handler_Memory_Guard memory;

  pid_t none = 0;
  if (!faulting_thread.compare_exchange_strong(none, gettid()))
    give_up_fault(signo);
  fault_signo = signo;
  get_thread_name(fault_thread_name);
  guard_fault();

  LOG_RECORD(LM_ALERT, "Signal %d (%s) caught in [%s], the back trace:\n%?.\n", signo, strsignal(signo),
             fault_thread_name);
  fault_logged = true;

  keep_loop_standing();
  // Status 0 for a fault too, and no core image: supervisors restart the process in any case and take the record
  // as the account of what happened.
  std::exit(0);
}
static int tried_throw; // entries into handle_terminate; one thread ends the process, so no atomic

void handle_terminate()
{
  if (tried_throw++ == 0) {
    try {
      throw; // without an active exception the runtime comes back to this handler
    } catch (const std::exception& e) {
      LOG_RECORD(LM_EMERGENCY, "Unhandled exception is caught, %s\n%?.\n", e.what());
    } catch (...) {
      LOG_RECORD(LM_EMERGENCY, "Unknown/unhandled exception is caught: \n%?.\n");
    }
  }

  std::abort();
}
