// Measures how late 10,000 timers expire that are spread over a second, in the program and in a bare host, with every
// kind of reactor.
//
//   timers_row ROUNDS

#include "bench/figures.h"
#include "bench/process.h"

#include <cstdlib>
#include <map>

struct Subject
{
  const char* kind;
  const char* threads;
};

// Returns the median, the 99th percentile and the maximum of the lateness in microseconds.
static std::vector<double> lateness(const Words& words)
{
  Process process(
      words + Words{"-S", "dynamic Timers Service_Object * " BENCH_LIBRARIES "/libbench_services.so:_make_Timers()"});
  process.wait_for(" end\n");
  std::vector<double> usec(3);
  const char* const text = process.log().c_str() + process.log().find("late ");
  if (std::sscanf(text, "late %lf %lf %lf", &usec[0], &usec[1], &usec[2]) != 3)
    throw std::runtime_error("no figures: " + process.log());
  return usec;
}

int main(int, char** argv)
{
  const int rounds = std::atoi(argv[1]);
  const Subject subjects[] = {{"select", "1"}, {"priority", "1"}, {"tp", "4"}, {"dev_poll", "1"}, {"dev_poll", "4"}};
  const char* const names[] = {"median", "99 %", "latest"};

  std::map<std::string, std::vector<double>> bare[3];
  std::map<std::string, std::vector<double>> own[3];
  for (int n = 0; n < rounds; ++n)
    for (const auto& [kind, threads] : subjects) {
      std::fprintf(stderr, "timers: round %d of %d, %s, %s thread(s)\n", n + 1, rounds, kind, threads);
      const std::vector<double> least = lateness({BENCH_DIR "/bare_host", kind, threads});
      const std::vector<double> usec = lateness({BENCH_STARTER, "--reactor", kind, "--threads", threads});
      for (std::size_t i = 0; i < 3; ++i) {
        bare[i][std::string(kind) + ", " + threads].push_back(least[i]);
        own[i][std::string(kind) + ", " + threads].push_back(usec[i]);
      }
    }

  for (std::size_t i = 0; i < 3; ++i)
    for (const auto& [kind, samples] : own[i]) {
      print_figures("timers", std::string(names[i]) + " lateness of 10,000 timers, us", "bare " + kind, bare[i][kind],
                    bare[i][kind]);
      print_figures("timers", std::string(names[i]) + " lateness of 10,000 timers, us", "starter " + kind, samples,
                    bare[i][kind]);
    }
}
