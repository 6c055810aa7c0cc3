#include "tests/faults/scenario.h"

#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <signal.h>
#include <sys/syscall.h>

using Clock = std::chrono::steady_clock;

// A fault may take the guard of five seconds and that of the record to end; what is still there after these hangs.
static constexpr std::chrono::seconds STEP_DEADLINE(8);
static constexpr std::chrono::seconds END_DEADLINE(15);
static constexpr std::chrono::milliseconds QUIET(300); // after which a process that rests has nothing left to do
static constexpr std::chrono::milliseconds POLL_INTERVAL(3);

namespace
{
// strace, attached to a process that the gate has stopped. It ends with that process.
class Tracer
{
public:
  Tracer(pid_t pid, const std::vector<std::string>& args);
  ~Tracer() { pclose(messages_); }

  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

private:
  FILE* messages_; // kept open: strace tells of every thread, and must not be ended by a closed pipe
};
} // namespace

Tracer::Tracer(pid_t pid, const std::vector<std::string>& args)
{
  std::string command = "exec strace -p " + std::to_string(pid);
  for (const std::string& arg : args)
    command += " '" + arg + '\'';
  command += " 2>&1";

  messages_ = popen(command.c_str(), "re");
  char line[256] = ""; // the first one tells that it is attached
  if (!messages_ || !std::fgets(line, sizeof line, messages_) || !std::strstr(line, "attached"))
    throw std::runtime_error(std::string("strace does not attach: ") + line);
}

// The state letter of a thread, 0 when it has gone. The field stands behind the name, in which there may be anything.
static char thread_state(pid_t pid, pid_t tid)
{
  const std::string stat = read_file("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/stat");
  const std::size_t at = stat.rfind(") ");
  return at == std::string::npos || at + 2 >= stat.size() ? '\0' : stat[at + 2];
}

// Whether every thread sleeps, and not for want of another process.
static bool rests(const Starter_Process& starter)
{
  const std::vector<pid_t> tids = starter.threads();
  return starter.waiting_call() != SYS_wait4 &&
         std::all_of(tids.begin(), tids.end(), [&](pid_t tid) { return thread_state(starter.pid(), tid) == 'S'; });
}

// Wait until `is_done`, until the process has ended, or until it has been at rest for a while: it may have failed to
// do or to write what is waited for.
static void wait_for_step(Starter_Process& starter, const std::function<bool()>& is_done)
{
  const Clock::time_point deadline = Clock::now() + STEP_DEADLINE;
  Clock::time_point busy = Clock::now();

  while (starter.is_running() && !is_done() && Clock::now() < deadline) {
    if (!rests(starter))
      busy = Clock::now();
    if (Clock::now() - busy > QUIET)
      return;
    std::this_thread::sleep_for(POLL_INTERVAL);
  }
}

static bool wait_for_end(Starter_Process& starter)
{
  const Clock::time_point deadline = Clock::now() + END_DEADLINE;

  while (starter.is_running() && Clock::now() < deadline) {
    (void)starter.log(); // a full pipe would hold the process back
    std::this_thread::sleep_for(POLL_INTERVAL);
  }
  return !starter.is_running();
}

static Outcome play(Starter_Process& starter)
{
  Outcome outcome;
  const auto is_in_loop = [&] { return is_in_event_loop(starter.pid()); };

  wait_for_step(starter, [&] { return starter.count(" is started.") != 0 && is_in_loop(); });
  if (starter.is_running()) {
    starter.send(SIGHUP);
    wait_for_step(starter, [&] { return starter.count("Second starts.") == 2 && is_in_loop(); });
  }
  if (starter.is_running()) {
    starter.send(SIGTERM);
    outcome.was_told_to = true;
  }

  outcome.hangs = !wait_for_end(starter);
  if (outcome.hangs)
    starter.send(SIGKILL);
  outcome.status = starter.wait_status();
  outcome.log = starter.log();
  return outcome;
}

// Two services, each in a file of its own.
static std::vector<std::string> make_args(const Configuration& configuration, const Temp_Dir& dir)
{
  dir.write("conf.d/10.conf", dynamic_directive("First", "recorder", "_make_Recorder", "First"));
  dir.write("conf.d/20.conf", dynamic_directive("Second", "recorder", "_make_Recorder", "Second"));

  std::vector<std::string> args = configuration.args;
  args.insert(args.end(), {"-f", dir / "conf.d"});
  return args;
}

static std::string target_of_stderr(pid_t pid)
{
  return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/2");
}

// Run the program under strace with these options and, if `only_stderr`, with a look at calls about standard error
// only.
static Outcome run_traced(const Configuration& configuration, std::vector<std::string> tracing, bool only_stderr)
{
  const Temp_Dir dir;
  Start_Options options;
  options.preload.push_back(public_path(TESTS_FAULT_GATE));
  if (configuration.has_threads)
    tracing.insert(tracing.begin(), "-f");

  std::unique_ptr<Tracer> tracer; // outlives the process, with which it ends
  Starter_Process starter(make_args(configuration, dir), options);
  if (!wait_until([&] { return thread_state(starter.pid(), starter.pid()) == 'T'; }))
    throw std::runtime_error("the program does not come to the gate");
  if (only_stderr)
    tracing.insert(tracing.end(), {"-P", target_of_stderr(starter.pid())});
  tracer = std::make_unique<Tracer>(starter.pid(), tracing);
  starter.send(SIGCONT);
  return play(starter);
}

static Outcome run_short_of_memory(const Configuration& configuration, const std::string& variable,
                                   const std::string& value)
{
  const Temp_Dir dir;
  Start_Options options;
  options.preload.push_back(public_path(TESTS_FAILING_MEMORY));
  options.env[variable] = value;

  Starter_Process starter(make_args(configuration, dir), options);
  return play(starter);
}

Outcome run(const Configuration& configuration, const Injection& injection)
{
  if (injection.is_memory())
    return run_short_of_memory(configuration, "FAIL_MEMORY",
                               std::to_string(injection.when) + (injection.for_ever ? "+" : ""));
  if (injection.call.empty())
    return run_traced(configuration, {"-o", "/dev/null", "-e", "trace=write"}, false);

  const std::vector<std::string> tracing = {
      "-o", "/dev/null", "-e", "trace=" + injection.call, "-e", "inject=" + name_of(injection)};
  return run_traced(configuration, tracing, injection.call == "write");
}

std::map<std::string, unsigned long> count_calls(const Configuration& configuration)
{
  const Temp_Dir dir;
  const std::string file = dir / "trace";
  (void)run_traced(configuration, {"-o", file}, false);

  static const std::regex call("^(?:([0-9]+) +)?([a-z][a-z0-9_]*)\\(.*");
  std::map<std::string, std::map<std::string, unsigned long>> counts; // by name and thread
  std::map<std::string, unsigned long> most;
  std::istringstream trace(read_file(file));
  std::smatch match;
  for (std::string line; std::getline(trace, line);)
    if (std::regex_match(line, match, call) && !effects_of(match.str(2)).empty()) {
      unsigned long& maximum = most[match.str(2)];
      maximum = std::max(maximum, ++counts[match.str(2)][match.str(1)]);
    }
  return most;
}

unsigned long count_allocations(const Configuration& configuration)
{
  const Temp_Dir dir;
  (void)run_short_of_memory(configuration, "COUNT_MEMORY", dir / "count");
  return std::stoul(read_file(dir / "count"));
}
