// Measures how the processor time from start to exit grows with the number of configuration files, and with the number
// of services. The program gets a directory, the required host each file by its path. What the program takes beyond the
// host, beyond its own cost without files and for each file, is its own cost for a file.
//
//   growth_row ROUNDS MOST_FILES

#include "bench/figures.h"
#include "bench/process.h"
#include "bench/scratch.h"

#include <cstdlib>
#include <filesystem>
#include <map>

static std::string directive(int n)
{
  return "dynamic S" + std::to_string(n) +
         " Service_Object * " BENCH_LIBRARIES "/libbench_services.so:_make_Silent()\n";
}

// Makes the directory with `count` files, with a service in each if there are to be services. Returns the paths.
static Words make_files(const std::filesystem::path& dir, int count, bool with_services)
{
  std::filesystem::create_directories(dir);
  Words paths;
  for (int n = 0; n < count; ++n) {
    char file[32];
    std::snprintf(file, sizeof file, "service-%04d.conf", n);
    std::ofstream out(dir / file);
    if (with_services)
      out << directive(n);
    paths.push_back(dir / file);
  }
  return paths;
}

static double cpu_msec(const Words& words)
{
  Process process(words);
  process.wait_for("is started.");
  return 1e3 * process.end();
}

struct Growing
{
  std::string name;
  int count;
  Words starter;
  Words required;
  std::vector<double> own = {};
  std::vector<double> least = {};
};

static Growing with_files(const Scratch& scratch, int count, bool with_services)
{
  const std::string name = std::to_string(count) + (with_services ? " files with a service each" : " empty files");
  Words required{BENCH_DIR "/required_host"};
  for (const std::string& path : make_files(scratch.path() / name, count, with_services))
    required = std::move(required) + Words{"-f", path};
  return {name, count, {BENCH_STARTER, "-f", scratch.path() / name}, required};
}

static Growing with_services(const Scratch& scratch, int count)
{
  const std::string name = std::to_string(count) + " services in a file";
  const std::string path = scratch.path() / (name + ".conf");
  std::ofstream out(path);
  for (int n = 0; n < count; ++n)
    out << directive(n);
  return {name, count, {BENCH_STARTER, "-f", path}, {BENCH_DIR "/required_host", "-f", path}};
}

// The first one of a series is its base.
static void print_cost(const char* what, const Growing& base, const Growing& grown)
{
  std::vector<double> usec;
  for (std::size_t n = 0; n < grown.own.size(); ++n)
    usec.push_back(1e3 * ((grown.own[n] - base.own[n]) - (grown.least[n] - base.least[n])) /
                   (grown.count - base.count));
  print_figures("growth", what, grown.name, usec);
}

int main(int, char** argv)
try {
  const int rounds = std::atoi(argv[1]);
  const int most = std::atoi(argv[2]);
  const Scratch scratch;
  std::vector<Growing> empty;
  std::vector<Growing> full;
  std::vector<Growing> services;
  for (const int count : {1, 10, 100, 1000, 5000})
    if (count <= most) {
      empty.push_back(with_files(scratch, count, false));
      full.push_back(with_files(scratch, count, true));
    }
  for (const int count : {1, 10, 100, 1000})
    services.push_back(with_services(scratch, count));

  for (int n = 0; n < rounds; ++n) {
    std::fprintf(stderr, "growth: round %d of %d\n", n + 1, rounds);
    for (std::vector<Growing>* const series : {&empty, &full, &services})
      for (Growing& growing : *series) {
        growing.least.push_back(cpu_msec(growing.required));
        growing.own.push_back(cpu_msec(growing.starter));
      }
  }

  for (const std::vector<Growing>* const series : {&empty, &full, &services}) {
    for (const Growing& growing : *series) {
      print_figures("growth", "processor time, ms", "required, " + growing.name, growing.least, growing.least);
      print_figures("growth", "processor time, ms", "starter, " + growing.name, growing.own, growing.least);
    }
    if (series->back().count >= 100)
      print_cost("the program's own cost for each, us", series->front(), series->back());
  }
} catch (const std::exception& failure) {
  return tell(failure);
}
