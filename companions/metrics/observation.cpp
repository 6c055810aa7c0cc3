#include "companions/metrics/observation.h"

#include "companions/common/signal_chain.h"
#include "companions/metrics/host_metrics.h"
#include "companions/metrics/listener.h"
#include "companions/metrics/loop_lag.h"
#include "companions/metrics/process_metrics.h"
#include "companions/metrics/record_counter.h"
#include "companions/metrics/scrape_server.h"

#include "metrics/registry.h"

#include "scrt/log.h"

#include <ace/OS_Errno.h>

#include <prometheus/text_serializer.h>

#include <cerrno>
#include <memory>
#include <new>
#include <sstream>
#include <string>

#include <unistd.h>

// Nothing destroys these: signals and records come until the very end of the process.
template <typename T, typename... Args>
static T& make_immortal(Args... args)
{
  alignas(T) static char memory[sizeof(T)];
  return *new (memory) T(args...);
}

static Record_Counter& get_record_counter()
{
  static Record_Counter& counter = make_immortal<Record_Counter>();
  return counter;
}

static Loop_Lag& get_loop_lag()
{
  static Loop_Lag& lag = make_immortal<Loop_Lag>(look_from_loop);
  return lag;
}

// Only the main thread and its signal handlers touch these.
static Scrape_Server* server;
static std::string asked_address; // as the arguments name it, which the server's may differ from in the port
static bool is_active;            // the observation
static bool is_in_hang_up;        // the handler of a hang-up runs
static bool is_ended;             // by the reload that is under way
static bool is_renewed;           // likewise

static starter::Counter* reloads;

// ---- A scrape

static std::string render_metrics()
{
  std::vector<prometheus::MetricFamily> families;
  add_host_metrics(families);
  add_process_metrics(families);
  for (prometheus::MetricFamily& family : starter::collect_metrics())
    families.push_back(std::move(family));

  std::ostringstream text;
  prometheus::TextSerializer().Serialize(text, families);
  return text.str();
}

static void stop_server()
{
  if (server && server->stop())
    delete server; // or else its thread still uses it
  server = nullptr;
}

static int start_server(const char* address)
{
  if (server && asked_address == address)
    return 0;
  Listener listener;
  if (listener.open(address) != 0)
    return -1;

  stop_server();
  auto started = std::make_unique<Scrape_Server>(render_metrics);
  if (started->start(listener) != 0)
    return -1;
  server = started.release();
  asked_address = address;
  LOG_RECORD(LM_INFO, "The metrics are at %C\n", server->address().c_str());
  return 0;
}

// ---- Signal handlers

static void sig_hang_up(int signo, siginfo_t* info, void* context);
static void sig_other(int signo, siginfo_t* info, void* context);

namespace
{
struct Counted_Signal
{
  Signal_Chain chain;
  const char* name;
  starter::Counter* count;
};
} // namespace

static Counted_Signal counted_signals[] = {
    {{SIGHUP, sig_hang_up}, "SIGHUP", nullptr}, {{SIGINT, sig_other}, "SIGINT", nullptr},
    {{SIGQUIT, sig_other}, "SIGQUIT", nullptr}, {{SIGTERM, sig_other}, "SIGTERM", nullptr},
    {{SIGUSR2, sig_other}, "SIGUSR2", nullptr},
};

static void leave()
{
  is_active = false;
  for (Counted_Signal& signal : counted_signals)
    signal.chain.remove();
  get_loop_lag().stop();
  stop_server();
}

static void finish_hang_up()
{
  is_in_hang_up = false;
  if (is_renewed) {
    is_renewed = false;
    reloads->increment();
    expect_guard();
  }
  if (is_ended) { // the service has been removed, or was not initialised again
    is_ended = false;
    leave();
  }
}

static const Counted_Signal& find_signal(int signo)
{
  const Counted_Signal* signal = counted_signals;
  while (signal->chain.signo() != signo)
    ++signal;
  return *signal;
}

// The program sends some signals to itself: a hang-up to come to its reload, and those of its timers.
static void count_signal(const Counted_Signal& signal, const siginfo_t* info)
{
  const bool is_from_timer = info && info->si_code == SI_TIMER;
  const bool is_from_process = info && info->si_code <= 0 && !is_from_timer && info->si_pid == ::getpid();
  if (!is_from_timer && !is_from_process)
    signal.count->increment();
}

static void sig_other(int signo, siginfo_t* info, void* context)
{
  const ACE_Errno_Guard guard(errno);
  const Counted_Signal& signal = find_signal(signo);
  count_signal(signal, info);
  signal.chain.call_former(info, context);
}

static void sig_hang_up(int signo, siginfo_t* info, void* context)
{
  const ACE_Errno_Guard guard(errno);
  const bool is_first = ::gettid() == ::getpid() && is_active && !is_in_hang_up;
  const Counted_Signal& signal = find_signal(signo);

  count_signal(signal, info);
  if (is_first)
    is_in_hang_up = true;
  signal.chain.call_former(info, context);
  if (is_first)
    finish_hang_up();
}

// ---- Begin and end

static int make_counters()
{
  reloads = starter::counter("starter_reloads_total", "Reloads of the services.");
  if (!reloads)
    return -1;
  for (Counted_Signal& signal : counted_signals) {
    signal.count =
        starter::counter("starter_signals_total", "Signals that other processes sent.", {{"signal", signal.name}});
    if (!signal.count)
      return -1;
  }
  return get_record_counter().install();
}

static int enter()
{
  prepare_host_metrics();
  if (make_counters() != 0 || get_loop_lag().start() != 0) {
    const ACE_Errno_Guard guard(errno);
    leave();
    return -1;
  }

  is_active = true;
  for (Counted_Signal& signal : counted_signals)
    signal.chain.insert();
  return 0;
}

int begin_observation(const char* address)
{
  if (is_active && !is_ended) {
    errno = EALREADY;
    return -1;
  }

  if (start_server(address) != 0)
    return -1;
  if (!is_ended)
    return enter();
  is_ended = false;
  is_renewed = true;
  return 0;
}

void end_observation()
{
  if (is_in_hang_up)
    is_ended = true;
  else
    leave();
}
