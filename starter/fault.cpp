#include "starter/fault.h"

#include "scrt/log.h"
#include "starter/host_phase.h"
#include "starter/interrupted.h"
#include "starter/loop_control.h"
#include "starter/thread_name.h"
#include "starter/trace_modules.h"

#include <ace/Reactor.h>
#include <ace/Thread_Manager.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

enum { FAULT_GUARD_SEC = 5, MAX_EXIT_FAULTS = 16, TRACE_SIZE = 65536 };

// The fault that ends the process: its thread, 0 while there is none, what it was, whether that has been logged,
// whether the modules of its back trace are being logged, and how often the fault has been tried without a back trace.
static std::atomic<pid_t> faulting_thread;
static int fault_signo;
static char fault_thread_name[THREAD_NAME_SIZE];
static std::atomic<bool> fault_logged;
static std::atomic<bool> is_naming_modules;
static std::atomic<int> short_records;
static int exit_faults; // of the faulting thread, while exit handlers run

// The record of a fault without the framework, whose lock of the log the faulting thread may hold, as one does that was
// being made and got its log. Nothing here takes a lock or memory.
static void write_fault(int signo, const char* thread_name)
{
  char text[128];
  const int len = std::snprintf(text, sizeof text, "Signal %d (%s) caught in [%s], the back trace:\n.\n", signo,
                                sigdescr_np(signo), thread_name);
  (void)!::write(STDERR_FILENO, text, static_cast<std::size_t>(len)); // nothing is left to be done about it
}

// Guarantees an end: fault signals are unblocked, so that a further fault of this thread reaches its signal handler
// instead of ending the process silently, and an alarm ends a hang. Nobody else's alarm matters any more.
static void guard_fault(unsigned sec)
{
  sigset_t faults;
  sigemptyset(&faults);
  for (const int fault : FAULT_SIGNALS)
    sigaddset(&faults, fault);

  (void)pthread_sigmask(SIG_UNBLOCK, &faults, nullptr); // cannot fail with these arguments
  (void)alarm(sec);
}

// The first fault could not be logged with its back trace. Most likely it is the allocator's, and the back trace, which
// allocates, waits for its lock: no exit handler would get further.
[[noreturn]] static void end_without_trace()
{
  const int tried = short_records++;
  if (tried == 0 && faulting_thread == gettid()) {
    guard_fault(1); // should this record hang or fault too
    LOG_RECORD(LM_ALERT, "Signal %d (%s) caught in [%s], the back trace:\n.\n", fault_signo, strsignal(fault_signo),
               fault_thread_name);
    fault_logged = true;
  } else if (tried < 2)
    write_fault(fault_signo, fault_thread_name);
  _exit(0);
}

// The alarm may interrupt any thread, but only the faulting one can write a record through the framework, to wherever
// records go: it may hold the lock of the log. If that takes too long, the alarm comes once more.
static void hand_alarm_to_faulting_thread()
{
  static std::atomic<bool> is_handed_over;
  if (is_handed_over.exchange(true))
    return;

  guard_fault(1);
  (void)tgkill(getpid(), faulting_thread, SIGALRM); // that thread waits in its signal handler, so it is there
  for (;;)
    pause();
}

// An exit handler has faulted. Those after it have their turn: the C library goes on with the next one.
[[noreturn]] static void leave_again(int signo)
{
  char thread_name[THREAD_NAME_SIZE];
  get_thread_name(thread_name);
  write_fault(signo, thread_name);

  guard_fault(FAULT_GUARD_SEC);
  if (++exit_faults < MAX_EXIT_FAULTS)
    std::exit(0);
  _exit(0);
}

// The exit handlers take the framework down while threads of a pool still run its loop, and threads of services may
// still run. Both need these objects: without them they fault too, with locks that the exit waits for.
static void keep_threads_going()
{
  if (has_loop_threads() && has_reactor())
    ACE_Reactor::instance(ACE_Reactor::instance(), false);
  ACE_Thread_Manager::instance(ACE_Thread_Manager::instance()); // one that is set this way is not deleted
}

[[noreturn]] static void leave()
{
  is_naming_modules = false;
  keep_threads_going();
  // Status 0 for a fault too, and no core image: supervisors restart the process in any case and take the record
  // as the account of what happened.
  std::exit(0);
}

// The first fault of the process writes the record and leaves; this is where every later one ends. It waits for the
// first one, unless it shows that the first one cannot get on: it is on the same thread, or it is the alarm.
[[noreturn]] static void end_later_fault(int signo)
{
  if (faulting_thread != gettid() && signo != SIGALRM)
    for (;;)
      pause();

  if (!fault_logged) {
    if (faulting_thread != gettid())
      hand_alarm_to_faulting_thread();
    end_without_trace();
  }
  if (signo != SIGALRM && is_naming_modules) {
    guard_fault(FAULT_GUARD_SEC);
    leave(); // the memory of a module is not what it was; the fault itself has its record
  }
  if (signo != SIGALRM)
    leave_again(signo);
  _exit(0); // an exit handler hangs
}

void sig_abnormal_terminate(int signo)
{
  const Handler_Memory_Guard memory;

  pid_t none = 0;
  if (!faulting_thread.compare_exchange_strong(none, gettid()))
    end_later_fault(signo);
  fault_signo = signo;
  get_thread_name(fault_thread_name);
  guard_fault(FAULT_GUARD_SEC);

  LOG_RECORD(LM_ALERT, "Signal %d (%s) caught in [%s], the back trace:\n%?.\n", signo, strsignal(signo),
             fault_thread_name);
  fault_logged = true;
  is_naming_modules = true;
  log_trace_modules();
  leave();
}

// Whether there is memory for a back trace, which the framework takes for granted.
static bool can_trace()
{
  void* volatile memory = std::malloc(TRACE_SIZE); // volatile, or the optimiser drops what nobody reads
  std::free(memory);

  return memory != nullptr;
}

static int tried_throw; // entries into handle_terminate; one thread ends the process, so no atomic

void handle_terminate()
{
  const Handler_Memory_Guard memory; // the exception may be a lack of memory

  if (tried_throw++ == 0) {
    try {
      throw; // without an active exception the runtime comes back to this handler
    } catch (const std::exception& e) {
      LOG_RECORD(LM_EMERGENCY,
                 can_trace() ? "Unhandled exception is caught, %s\n%?.\n" : "Unhandled exception is caught, %s\n.\n",
                 e.what());
    } catch (...) {
      LOG_RECORD(LM_EMERGENCY, can_trace() ? "Unknown/unhandled exception is caught: \n%?.\n"
                                           : "Unknown/unhandled exception is caught: \n.\n");
    }
  }

  std::abort();
}
