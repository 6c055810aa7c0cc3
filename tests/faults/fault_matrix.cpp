// Runs the program again and again, with another system call or allocation failing each time, and looks at its ends.
//
//   fault_matrix [RUNS|all] [--seed N] [--list]   all cases or a sample of them, with the end of each if it is to list
//   fault_matrix --only CASE                      one case, with its log
//
// The status is 0 if no run has come to a wrong end.

#include "tests/faults/injection.h"
#include "tests/faults/scenario.h"
#include "tests/faults/verdict.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>
#include <limits>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{
struct Arguments
{
  std::size_t runs = 300;
  unsigned seed = 1;
  std::string only;
  bool lists = false;
};

using Counts = std::map<std::string, std::array<unsigned, END_COUNT>>; // of a configuration

// The results of the runs so far.
class Report
{
public:
  explicit Report(bool lists) : lists_(lists) {}

  void add(const Case& c, End end, const Outcome& outcome);

  /// Print the counts. Returns whether no end was wrong.
  bool print() const;

private:
  const bool lists_;
  std::mutex lock_;
  Counts counts_;
  std::map<std::string, unsigned> excused_;
  unsigned wrong_ = 0;
};
} // namespace

static std::string last_lines(const std::string& log)
{
  std::size_t at = log.size();
  for (int lines = 0; at > 0; --at)
    if (log[at - 1] == '\n' && ++lines == 5)
      break;

  std::string text = "    ";
  for (const char c : log.substr(at))
    text += c == '\n' ? "\n    " : std::string(1, c);
  return text;
}

void Report::add(const Case& c, End end, const Outcome& outcome)
{
  const std::lock_guard<std::mutex> guard(lock_);
  if (lists_)
    std::cout << name_of(c) << ": " << name_of(end) << std::endl;
  const std::string excuse = is_wrong(end) ? excuse_of(c.injection, end, outcome.log) : "";
  if (!excuse.empty()) {
    ++excused_[excuse];
    return;
  }
  ++counts_[c.configuration->name][end];
  if (!is_wrong(end))
    return;

  ++wrong_;
  std::cout << name_of(end) << ", status " << outcome.status << ", to be repeated with: scripts/faults --only '"
            << name_of(c) << "'\n"
            << last_lines(outcome.log) << std::endl;
}

bool Report::print() const
{
  unsigned total = 0;
  for (const auto& [configuration, ends] : counts_)
    for (int end = 0; end < END_COUNT; ++end)
      if (const unsigned count = ends[static_cast<std::size_t>(end)]) {
        std::printf("%6u %-9s %s\n", count, configuration.c_str(), name_of(static_cast<End>(end)));
        total += count;
      }
  for (const auto& [excuse, count] : excused_) {
    std::printf("%6u excused: %s\n", count, excuse.c_str());
    total += count;
  }
  std::printf("%6u runs, %u wrong ends\n", total, wrong_);
  return wrong_ == 0 && total != 0;
}

static void add_cases(std::vector<Case>& cases, const Configuration& configuration, Injection injection,
                      unsigned long count)
{
  for (injection.when = 1; injection.when <= count; ++injection.when)
    for (const bool for_ever : {false, true}) {
      injection.for_ever = for_ever;
      cases.push_back({&configuration, injection});
    }
}

static std::vector<Case> make_cases()
{
  std::vector<Case> cases;
  for (const Configuration& configuration : configurations()) {
    for (const auto& [call, count] : count_calls(configuration))
      for (const std::string& effect : effects_of(call))
        add_cases(cases, configuration, {call, effect}, count);
    add_cases(cases, configuration, {"memory", ""}, count_allocations(configuration));
  }
  return cases;
}

// A run that fails for its own reasons, such as a tracer that does not attach, is an error of the whole.
static bool run_all(const std::vector<Case>& cases, const std::map<std::string, std::string>& usual, Report& report)
{
  std::atomic<std::size_t> next(0);
  std::atomic<bool> failed(false);
  const auto work = [&] {
    try {
      for (std::size_t i; !failed && (i = next++) < cases.size();) {
        const Outcome outcome = run(*cases[i].configuration, cases[i].injection);
        report.add(cases[i], end_of(outcome, usual.at(cases[i].configuration->name)), outcome);
      }
    } catch (const std::exception& e) {
      std::cerr << e.what() << std::endl;
      failed = true;
    }
  };

  std::vector<std::thread> workers;
  for (unsigned i = 0; i < 3 * std::thread::hardware_concurrency(); ++i) // most of a run is waiting
    workers.emplace_back(work);
  for (std::thread& worker : workers)
    worker.join();
  return !failed;
}

static std::string usual_log(const Configuration& configuration)
{
  const Outcome outcome = run(configuration, {});
  if (outcome.hangs || outcome.status != 0)
    throw std::runtime_error("a run without an injection fails:\n" + outcome.log);
  return outcome.log;
}

static bool run_one(const Case& c)
{
  const Outcome outcome = run(*c.configuration, c.injection);
  const End end = end_of(outcome, usual_log(*c.configuration));
  const std::string excuse = excuse_of(c.injection, end, outcome.log);

  std::cout << outcome.log << name_of(end) << ", status " << outcome.status << ' ' << excuse << std::endl;
  return !is_wrong(end) || !excuse.empty();
}

static Arguments parse(const std::vector<std::string>& args)
{
  Arguments result;
  for (std::size_t i = 0; i < args.size(); ++i)
    if (args[i] == "all")
      result.runs = std::numeric_limits<std::size_t>::max();
    else if (args[i] == "--seed" && i + 1 < args.size())
      result.seed = static_cast<unsigned>(std::stoul(args[++i]));
    else if (args[i] == "--only" && i + 1 < args.size())
      result.only = args[++i];
    else if (args[i] == "--list")
      result.lists = true;
    else
      result.runs = std::stoul(args[i]);
  return result;
}

static bool run_matrix(const Arguments& arguments)
{
  std::map<std::string, std::string> usual;
  for (const Configuration& configuration : configurations())
    usual[configuration.name] = usual_log(configuration);

  std::vector<Case> cases = make_cases();
  std::cout << cases.size() << " cases, seed " << arguments.seed << std::endl;
  std::shuffle(cases.begin(), cases.end(), std::mt19937(arguments.seed));
  cases.resize(std::min(cases.size(), arguments.runs));

  Report report(arguments.lists);
  const bool complete = run_all(cases, usual, report);
  return report.print() && complete;
}

int main(int argc, char** argv)
{
  try {
    const Arguments arguments = parse({argv + 1, argv + argc});
    return (arguments.only.empty() ? run_matrix(arguments) : run_one(case_of(arguments.only))) ? 0 : 1;
  } catch (const std::exception& e) {
    std::cerr << "fault_matrix [RUNS|all] [--seed N] [--list] [--only CASE]: " << e.what() << std::endl;
    return 2;
  }
}
