// Measures an idle process: its private and its proportional memory, against a bare host with the same reactor and
// threads under the same limit of descriptors, and how often its threads wake up, with and without a watchdog.
//
//   idle_row ROUNDS WAKE_UP_SECONDS

#include "bench/figures.h"
#include "bench/process.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>

struct Kind
{
  const char* name;
  Words starter;
  Words bare;
};

static const Kind KINDS[] = {{"select", {"--reactor", "select"}, {"select", "1"}},
                             {"priority", {"--reactor", "priority"}, {"priority", "1"}},
                             {"tp, 4 threads", {"--reactor", "tp", "--threads", "4"}, {"tp", "4"}},
                             {"dev_poll", {"--reactor", "dev_poll"}, {"dev_poll", "1"}},
                             {"dev_poll, 4 threads", {"--reactor", "dev_poll", "--threads", "4"}, {"dev_poll", "4"}}};

static Words limited(const char* limit, const Words& words)
{
  return Words{"/usr/bin/prlimit", std::string("--nofile=") + limit + ":" + limit} + words;
}

// Returns the figure of the process, in KiB, that the system gives under one of the `names`, added up.
static double memory_of(const Process& process, const Words& names)
{
  double kib = 0;
  std::ifstream rollup("/proc/" + std::to_string(process.pid()) + "/smaps_rollup");
  for (std::string word; rollup >> word;)
    for (const std::string& name : names)
      if (word == name) {
        double value = 0;
        rollup >> value;
        kib += value;
      }
  return kib;
}

// Returns how often threads of the process have given up the processor.
static double switches_of(const Process& process)
{
  double switches = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process.pid()) + "/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string word; status >> word;)
      if (word == "voluntary_ctxt_switches:") {
        double value = 0;
        status >> value;
        switches += value;
      }
  }
  return switches;
}

// Starts the process and gives its threads the time to come to rest.
static std::unique_ptr<Process> start(const Words& words, const Words& environment)
{
  std::unique_ptr<Process> process = std::make_unique<Process>(words, environment);
  process->wait_for("is started.");
  usleep(50000);
  return process;
}

static void measure_memory(int rounds, const char* limit)
{
  std::map<std::string, std::vector<double>> own;
  std::map<std::string, std::vector<double>> bare;
  for (int n = 0; n < rounds; ++n)
    for (const Kind& kind : KINDS) {
      std::fprintf(stderr, "idle: memory, limit %s, round %d of %d\n", limit, n + 1, rounds);
      const Words program_words = limited(limit, Words{BENCH_STARTER} + kind.starter);
      const Words host_words = limited(limit, Words{BENCH_DIR "/bare_host"} + kind.bare);
      const auto program_twin = start(program_words, {}); // shares the pages of the executable, as others do in use
      const auto program = start(program_words, {});
      const auto host_twin = start(host_words, {});
      const auto host = start(host_words, {});
      for (const auto& [what, names] : {std::pair("private", Words{"Private_Clean:", "Private_Dirty:"}),
                                        std::pair("proportional", Words{"Pss:"})}) {
        const std::string key = std::string(what) + " memory at a limit of " + limit + ", KiB\t" + kind.name;
        own[key].push_back(memory_of(*program, names));
        bare[key].push_back(memory_of(*host, names));
      }
    }

  for (const auto& [key, samples] : own) {
    const std::string what = key.substr(0, key.find('\t'));
    const std::string kind = key.substr(key.find('\t') + 1);
    print_figures("idle", what, "bare " + kind, bare[key], bare[key]);
    print_figures("idle", what, "starter " + kind, samples, bare[key]);
  }
}

// All processes wait at the same time, a number of copies of each.
static void measure_wake_ups(int copies, unsigned seconds)
{
  const Words watchdog{"LIBSYSTEMD_FILENAME=" BENCH_LIBRARIES "/libbench_client.so"};
  std::vector<std::pair<std::string, std::unique_ptr<Process>>> processes;
  for (int n = 0; n < copies; ++n)
    for (const Kind& kind : KINDS) {
      const Words words = Words{BENCH_STARTER} + kind.starter;
      processes.emplace_back("bare " + std::string(kind.name), start(Words{BENCH_DIR "/bare_host"} + kind.bare, {}));
      processes.emplace_back("starter " + std::string(kind.name), start(words, {}));
      processes.emplace_back("starter " + std::string(kind.name) + ", watchdog of 30 s", start(words, watchdog));
    }

  std::vector<double> before;
  for (const auto& [name, process] : processes)
    before.push_back(switches_of(*process));
  for (unsigned n = 0; n < seconds; ++n) {
    if (n % 10 == 0)
      std::fprintf(stderr, "idle: wake-ups, %u of %u seconds\n", n, seconds);
    sleep(1);
  }

  std::map<std::string, std::vector<double>> a_minute;
  for (std::size_t n = 0; n < processes.size(); ++n)
    a_minute[processes[n].first].push_back((switches_of(*processes[n].second) - before[n]) * 60 / seconds);
  for (const auto& [name, samples] : a_minute)
    print_figures("idle", "wake-ups a minute", name, samples);
}

int main(int, char** argv)
try {
  const int rounds = std::atoi(argv[1]);
  for (const char* const limit : {"1024", "4096", "20000"})
    measure_memory(rounds, limit);
  measure_wake_ups(std::min(rounds, 3), static_cast<unsigned>(std::atoi(argv[2])));
} catch (const std::exception& failure) {
  return tell(failure);
}
