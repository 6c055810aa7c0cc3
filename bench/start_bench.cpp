// Measures the cost of the program as a process, compared with the least that a host can be: the time from its start
// until it reports that it is started, and the memory that it has taken by then.

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using Words = std::vector<std::string>;

const Words BARE_HOST{BENCH_BARE_HOST};
const Words KINDS[] = {{},
                       {"--reactor", "select"},
                       {"--reactor", "tp", "--threads", "4"},
                       {"--reactor", "dev_poll", "--threads", "4"},
                       {"--reactor", "priority"}};

Words starter(std::size_t kind)
{
  Words words = KINDS[kind];
  words.insert(words.begin(), BENCH_STARTER);
  return words;
}

std::string label(std::size_t kind)
{
  std::string text;
  for (const std::string& word : KINDS[kind])
    text += word + ' ';
  return text.empty() ? "default" : text;
}

// A process that has reported that it is started. The destructor ends the process.
class Started
{
public:
  explicit Started(const Words& words);
  ~Started()
  {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  Started(const Started&) = delete;
  Started& operator=(const Started&) = delete;

  // Returns the memory of the process: its own, and its share of the memory that it shares with others.
  double kib() const;

private:
  static void wait_for_record(int fd);

  pid_t pid_ = -1;
};

Started::Started(const Words& words)
{
  std::vector<char*> argv;
  for (const std::string& word : words)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  char no_notifier[] = "LIBSYSTEMD_FILENAME=0";
  char* envp[] = {no_notifier, nullptr};

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
  const int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (error != 0)
    throw std::runtime_error("cannot start " + words[0]);

  wait_for_record(fds[0]);
  close(fds[0]);
}

void Started::wait_for_record(int fd)
{
  std::string log;
  char buf[4096];
  while (log.find("is started.") == std::string::npos) {
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n <= 0)
      throw std::runtime_error("does not start: " + log);
    log.append(buf, static_cast<std::size_t>(n));
  }
}

double Started::kib() const
{
  std::ifstream rollup("/proc/" + std::to_string(pid_) + "/smaps_rollup");
  for (std::string word; rollup >> word;)
    if (word == "Pss:") {
      double value = 0;
      rollup >> value;
      return value;
    }
  throw std::runtime_error("no memory figures");
}

// Measures a start. The counter says how many times as long as the bare host the program takes to start, and to be
// killed and reaped.
void time_to_start(benchmark::State& state)
{
  const std::size_t kind = static_cast<std::size_t>(state.range(0));
  state.SetLabel(label(kind));

  side_by_side(state, 1, Contender{"starter", [kind] { const Started process(starter(kind)); }},
               Contender{"bare_host", [] { const Started process(BARE_HOST); }});
}
BENCHMARK(time_to_start)->DenseRange(0, 4)->UseManualTime()->Unit(benchmark::kMillisecond);

// Measures memory. The counters say how much memory the program has at the start, and how many times as much as the
// bare host that is.
void memory_at_start(benchmark::State& state)
{
  const std::size_t kind = static_cast<std::size_t>(state.range(0));
  state.SetLabel(label(kind));

  double own = 0;
  double bare = 0;
  for (auto _ : state) {
    const Started program(starter(kind));
    const Started host(BARE_HOST);
    own += program.kib();
    bare += host.kib();
  }
  state.counters["KiB"] = own / static_cast<double>(state.iterations());
  state.counters["bare_host"] = own / bare;
}
BENCHMARK(memory_at_start)->DenseRange(0, 4)->Iterations(20)->Unit(benchmark::kMillisecond);
} // namespace
