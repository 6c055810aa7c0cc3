// Measures a start in the program and in what it is compared with, in turns: from the start of the process to its
// report, to its end in order, and the processor time of the process and of the shell that the probe starts.
//
//   start_row ROUNDS

#include "bench/figures.h"
#include "bench/process.h"

#include <cstdlib>

struct Subject
{
  const char* name;
  Words words;
  int end = SIGTERM;
  std::vector<double> ready = {};
  std::vector<double> ended = {};
  std::vector<double> cpu = {};
};

static void start_and_end(Subject& subject)
{
  const double start = seconds_now();
  Process process(subject.words);
  process.wait_for("is started.");
  subject.ready.push_back(1e3 * (seconds_now() - start));
  subject.cpu.push_back(1e3 * process.end(subject.end));
  subject.ended.push_back(1e3 * (seconds_now() - start));
}

int main(int, char** argv)
try {
  const int rounds = std::atoi(argv[1]);
  const Words reporter{"-S",
                       "dynamic Reporter Service_Object * " BENCH_LIBRARIES "/libbench_services.so:_make_Reporter()"};
  const Words starter{BENCH_STARTER};
  Subject subjects[] = {{"plain program", {BENCH_DIR "/plain_program"}},
                        {"linked to libACE", {BENCH_DIR "/ace_program"}},
                        {"bare host", {BENCH_DIR "/bare_host"}},
                        {"with client library", {BENCH_DIR "/client_host"}},
                        {"required", {BENCH_DIR "/required_host"}},
                        {"starter", starter},
                        {"starter tp, 4 threads", starter + Words{"--reactor", "tp", "--threads", "4"}},
                        {"starter dev_poll, 4 threads", starter + Words{"--reactor", "dev_poll", "--threads", "4"}},
                        {"ace_netsvcs, reporting service", Words{BENCH_NETSVCS} + reporter, SIGINT},
                        {"starter, reporting service", starter + reporter}};
  const Subject& required = subjects[4];

  for (int n = 0; n < rounds; ++n) {
    std::fprintf(stderr, "start: round %d of %d\n", n + 1, rounds);
    for (Subject& subject : subjects)
      start_and_end(subject);
  }

  for (const Subject& subject : subjects)
    print_figures("start", "to the loop, ms", subject.name, subject.ready, required.ready);
  for (const Subject& subject : subjects)
    print_figures("start", "to the exit, ms", subject.name, subject.ended, required.ended);
  for (const Subject& subject : subjects)
    print_figures("start", "processor time, ms", subject.name, subject.cpu, required.cpu);
} catch (const std::exception& failure) {
  return tell(failure);
}
