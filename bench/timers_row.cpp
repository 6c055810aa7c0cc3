// Measures timers in the program and in a bare host, with every kind of reactor: how late 10,000 timers expire that are
// spread over a second, and how late the keep-alives of the watchdog are sent, one each second, while 64 connections
// ask the echo service as fast as it answers.
//
//   timers_row ROUNDS KEEP_ALIVES

#include "bench/figures.h"
#include "bench/notifications.h"
#include "bench/scratch.h"
#include "bench/session.h"

#include <cstdlib>
#include <map>

enum { CONNECTIONS = 64 };

struct Subject
{
  const char* kind;
  unsigned threads;
};

static const Subject SUBJECTS[] = {{"select", 1}, {"priority", 1}, {"tp", 4}, {"dev_poll", 1}, {"dev_poll", 4}};

static Words bare_host(const Subject& subject)
{
  return {BENCH_DIR "/bare_host", subject.kind, std::to_string(subject.threads)};
}

static Words starter(const Subject& subject)
{
  return {BENCH_STARTER, "--reactor", subject.kind, "--threads", std::to_string(subject.threads)};
}

// The samples of the rounds, by what was measured and the subject.
class Samples
{
public:
  void add(const std::string& what, const Subject& subject, double bare, double own)
  {
    const std::string name = std::string(subject.kind) + ", " + std::to_string(subject.threads);
    bare_[what][name].push_back(bare);
    own_[what][name].push_back(own);
  }

  void print(const std::string& what)
  {
    for (const auto& [name, samples] : own_[what]) {
      print_figures("timers", what, "bare " + name, bare_[what][name], bare_[what][name]);
      print_figures("timers", what, "starter " + name, samples, bare_[what][name]);
    }
  }

private:
  using By_Name = std::map<std::string, std::vector<double>>;

  std::map<std::string, By_Name> bare_;
  std::map<std::string, By_Name> own_;
};

// Returns the median, the 99th percentile and the maximum of the lateness of the 10,000 in microseconds.
static std::vector<double> timers_of(const Words& words)
{
  Process process(words + service("Timers"));
  process.wait_for(" end\n");
  std::vector<double> usec(3);
  const char* const text = process.log().c_str() + process.log().find("late ");
  if (std::sscanf(text, "late %lf %lf %lf", &usec[0], &usec[1], &usec[2]) != 3)
    throw std::runtime_error("no figures: " + process.log());
  return usec;
}

static const char* const TIMERS[] = {"median lateness of 10,000 timers, us", "99 % lateness of 10,000 timers, us",
                                     "latest lateness of 10,000 timers, us"};

static void measure_timers(const Subject& subject, Samples& samples)
{
  const std::vector<double> bare = timers_of(bare_host(subject));
  const std::vector<double> own = timers_of(starter(subject));
  for (std::size_t n = 0; n < 3; ++n)
    samples.add(TIMERS[n], subject, bare[n], own[n]);
}

// Returns the lateness of each keep-alive in microseconds. Those that were sent before the first was due do not count:
// the program sends one when it is ready.
static std::vector<double> keep_alives_of(const Words& words, unsigned threads, int count)
{
  const Scratch scratch;
  Notifications socket(scratch.path() / "notify");
  const Words environment{"NOTIFY_SOCKET=" + std::string(scratch.path() / "notify"),
                          "LIBSYSTEMD_FILENAME=" BENCH_LIBRARIES "/libbench_client.so", "SD_NOTIFY_INTERVAL=1"};
  std::vector<double> unused;
  Session({"", words, threads, true}, CONNECTIONS, environment).ask(CONNECTIONS, count + 0.5, unused, unused);

  double base = 0;
  std::vector<double> usec;
  for (const auto& [text, sent] : socket.take())
    if (text == KEEP_ALIVE_BASE)
      base = sent;
    else if (text == "WATCHDOG=1\n" && base > 0 && sent - base > 0.5)
      usec.push_back(1e6 * (sent - base - static_cast<double>(usec.size() + 1)));
  if (usec.size() < static_cast<std::size_t>(count))
    throw std::runtime_error("a keep-alive is missing: " + words[0]);
  usec.resize(static_cast<std::size_t>(count));
  return usec;
}

static const char* const KEEP_ALIVES = "lateness of a keep-alive under load, us";
static const char* const LATEST_KEEP_ALIVE = "latest keep-alive of a round under load, us";

static void measure_keep_alives(const Subject& subject, int count, Samples& samples)
{
  const std::vector<double> bare = keep_alives_of(bare_host(subject) + service("Keeper"), subject.threads, count);
  const std::vector<double> own = keep_alives_of(starter(subject), subject.threads, count);
  for (std::size_t n = 0; n < own.size(); ++n)
    samples.add(KEEP_ALIVES, subject, bare[n], own[n]);
  samples.add(LATEST_KEEP_ALIVE, subject, quantile(bare, 1), quantile(own, 1));
}

int main(int, char** argv)
try {
  const int rounds = std::atoi(argv[1]);
  const int count = std::atoi(argv[2]);

  Samples samples;
  for (int n = 0; n < rounds; ++n)
    for (const Subject& subject : SUBJECTS) {
      std::fprintf(stderr, "timers: round %d of %d, %s, %u thread(s)\n", n + 1, rounds, subject.kind, subject.threads);
      measure_timers(subject, samples);
      measure_keep_alives(subject, count, samples);
    }

  for (const char* const what : TIMERS)
    samples.print(what);
  samples.print(KEEP_ALIVES);
  samples.print(LATEST_KEEP_ALIVE);
} catch (const std::exception& failure) {
  return tell(failure);
}
