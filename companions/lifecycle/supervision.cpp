#include "companions/lifecycle/supervision.h"

#include "companions/common/loop_watch.h"
#include "companions/common/signal_chain.h"

#include <ace/OS_Errno.h>

#include <atomic>
#include <cerrno>
#include <new>

#include <unistd.h>

// Nothing destroys these: signals come until the very end of the process.
static Reporter& get_reporter()
{
  alignas(Reporter) static char memory[sizeof(Reporter)];
  static Reporter* const reporter = new (memory) Reporter;
  return *reporter;
}

static bool note_running_loop();

static Loop_Watch& get_loop_watch()
{
  alignas(Loop_Watch) static char memory[sizeof(Loop_Watch)];
  static Loop_Watch* const watch = new (memory) Loop_Watch(note_running_loop);
  return *watch;
}

static std::atomic<bool> is_active;     // the supervision
static std::atomic<bool> is_started;    // the process: its loop has run
static std::atomic<bool> is_reloading;  // as systemd knows it
static std::atomic<bool> is_stopping;   // as systemd knows it
static std::atomic<bool> is_terminated; // the loop has ended by a termination

// Only the main thread and its signal handlers touch these.
static bool is_in_hang_up; // the handler of a hang-up runs
static bool is_ended;      // by the reload that is under way
static bool is_renewed;    // likewise

static bool is_main_thread()
{
  return ::gettid() == ::getpid();
}

// ---- What systemd is told

static void count_loaded_services()
{
  bool is_loading;
  if (const int count = count_services(is_loading); count >= 0)
    get_reporter().facts().services = static_cast<unsigned>(count);
}

// In the event loop. The threads of a pool come one after another: their number is true when it stays the same.
static bool note_running_loop()
{
  Status_Facts& facts = get_reporter().facts();
  const unsigned threads = count_loop_threads();
  const bool is_settled = facts.threads.exchange(threads) == threads;
  facts.reactor = reactor_kind();
  count_loaded_services();
  is_started = true;
  get_reporter().end_start();
  return is_settled;
}

static void send_stopping()
{
  get_reporter().tell("STOPPING=1\n");
  get_reporter().set_operation(Operation::STOP);
}

// A handler in another thread may have told of the stop since this one looked. The stop is the last that systemd hears.
static void repeat_stopping()
{
  if (is_stopping)
    send_stopping();
}

static void tell_reloading()
{
  is_started = true;
  if (is_reloading.exchange(true))
    return;
  get_reporter().tell_reloading();
  get_reporter().set_operation(Operation::RELOAD);
  repeat_stopping();
}

static void tell_ready()
{
  if (!is_reloading.exchange(false))
    return;
  get_reporter().tell("READY=1\n");
  get_reporter().set_operation(Operation::NONE);
  repeat_stopping();
}

static void tell_stopping()
{
  if (!is_stopping.exchange(true))
    send_stopping();
}

// ---- Signal handlers

static void sig_hang_up(int signo, siginfo_t* info, void* context);
static void sig_terminate(int signo, siginfo_t* info, void* context);

static Signal_Chain hang_up(SIGHUP, sig_hang_up);
static Signal_Chain terminations[] = {{SIGINT, sig_terminate}, {SIGQUIT, sig_terminate}, {SIGTERM, sig_terminate}};

static void leave()
{
  is_active = false;
  hang_up.remove();
  for (Signal_Chain& chain : terminations)
    chain.remove();
  get_loop_watch().stop();
  get_reporter().last_failure().remove();
  get_reporter().stop();
}

static void finish_hang_up()
{
  is_in_hang_up = false;
  if (is_renewed) {
    is_renewed = false;
    ++get_reporter().facts().reloads;
    count_loaded_services();
  }

  if (is_loop_running() && !is_terminated)
    tell_ready();

  if (is_ended) { // the service has been removed, or was not initialised again
    is_ended = false;
    if (!is_loop_running())
      tell_stopping(); // nobody is there to tell it later
    leave();
  }
}

// While services are loaded, a hang-up is left for later, and the program is not ready before that.
static void sig_hang_up(int, siginfo_t* info, void* context)
{
  const ACE_Errno_Guard guard(errno);
  const bool is_first = is_main_thread() && is_active && !is_in_hang_up;

  if (is_first)
    is_in_hang_up = true;
  if (is_active && is_started && !is_terminated && is_loop_running())
    tell_reloading();
  hang_up.call_former(info, context);
  if (is_first)
    finish_hang_up();
}

static void sig_terminate(int signo, siginfo_t* info, void* context)
{
  const ACE_Errno_Guard guard(errno);
  for (const Signal_Chain& chain : terminations)
    if (chain.signo() == signo)
      chain.call_former(info, context);

  if (!is_active || is_loop_running())
    return; // a service may have taken the signal over
  is_terminated = true;
  tell_stopping();
}

// ---- Begin and end

static int enter(const char* address)
{
  Reporter& reporter = get_reporter();
  if (!is_started)
    reporter.set_operation(Operation::START);
  reporter.last_failure().install();
  if (get_loop_watch().start() != 0 || reporter.start(address) != 0) {
    const ACE_Errno_Guard guard(errno);
    leave();
    return -1;
  }

  is_active = true;
  hang_up.insert();
  for (Signal_Chain& chain : terminations)
    chain.insert();
  return 0;
}

int begin_supervision(const char* address, const Time_Limits& limits)
{
  if (is_active && !is_ended) {
    errno = EALREADY;
    return -1;
  }

  get_reporter().set_limits(limits);
  if (!is_ended)
    return enter(address);
  is_ended = false;
  is_renewed = true;
  return 0;
}

void end_supervision()
{
  if (is_in_hang_up) {
    is_ended = true;
    if (!is_terminated)
      tell_reloading(); // a hang-up of the time before the loop comes to its reload here
    return;
  }

  if (!is_loop_running()) {
    if (!is_started)
      is_stopping = false; // the program has said since then that it is ready
    tell_stopping();       // for the first time if a service has ended the loop
  }
  leave();
}
