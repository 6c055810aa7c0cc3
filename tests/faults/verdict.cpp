#include "tests/faults/verdict.h"

#include "tests/faults/failing_memory.h"

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>

#include <signal.h>

static const char* const NAMES[END_COUNT] = {
    "status 0 with all records",
    "status 0 with records of an error",
    "status 0 with records missing",
    "status 0 before the termination, with records of an error",
    "aborted by an exception with its record before faults are caught",
    "ended by a fault with its record",
    "WRONG: ended without a record",
    "WRONG: status other than 0",
    "WRONG: killed by a signal",
    "WRONG: hang",
};

const char* name_of(End end)
{
  return NAMES[end];
}

bool is_wrong(End end)
{
  return end == SILENT || end == STATUS || end == SIGNALLED || end == HANG;
}

// Without the process id that the framework begins some of its records with.
static std::vector<std::string> sorted_lines(const std::string& log)
{
  std::vector<std::string> lines;
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);)
    if (line != BEFORE_FAULTS_ARE_CAUGHT)
      lines.push_back(std::regex_replace(line, std::regex("^[0-9]+: "), ""));

  std::sort(lines.begin(), lines.end());
  return lines;
}

static bool contains(const std::string& log, const char* text)
{
  return log.find(text) != std::string::npos;
}

static bool tells_of_exception(const std::string& log)
{
  return contains(log, "xception is caught, ") || contains(log, "xception is caught: ");
}

// Whether a line stands in the log that does not stand in the usual one.
static bool has_more(const std::vector<std::string>& lines, const std::vector<std::string>& usual)
{
  return std::any_of(lines.begin(), lines.end(), [&usual](const std::string& line) {
    return !std::binary_search(usual.begin(), usual.end(), line);
  });
}

// Any record of the termination's will do: each may be the one that could not be written.
static bool tells_of_termination(const std::vector<std::string>& lines)
{
  const auto count = [&lines](const char* line) { return std::count(lines.begin(), lines.end(), line); };

  return count("Signal 15 (Terminated) caught in [starter].") > 0 || count("First is deleted.") > 1 ||
         count("Second is deleted.") > 1;
}

// Returns what was written after the start, or everything if it did not get that far: a service that could not be
// loaded is no reason for a process that has started to end.
static std::string after_start(const std::string& log)
{
  const std::size_t at = log.find(" is started.\n");
  return at == std::string::npos ? log : log.substr(log.find('\n', at) + 1);
}

End end_of(const Outcome& outcome, const std::string& usual)
{
  if (outcome.hangs)
    return HANG;
  if (outcome.status == -SIGABRT && tells_of_exception(outcome.log) && !contains(outcome.log, "First starts."))
    return ABORTED;
  if (outcome.status != 0)
    return outcome.status < 0 ? SIGNALLED : STATUS;
  if (contains(outcome.log, ", the back trace:\n") || tells_of_exception(outcome.log))
    return FAULT;

  const std::vector<std::string> lines = sorted_lines(outcome.log);
  const std::vector<std::string> usual_lines = sorted_lines(usual);
  if (lines == usual_lines)
    return AS_USUAL;
  if (!outcome.was_told_to)
    return has_more(sorted_lines(after_start(outcome.log)), usual_lines) ? BY_ITSELF : SILENT;
  if (has_more(lines, usual_lines))
    return WITH_RECORDS;
  return tells_of_termination(lines) ? RECORDS_MISSING : SILENT;
}

namespace
{
struct Excuse
{
  const char* call;
  bool for_ever_only;
  End end;
  const char* text; // has to stand in the log
  const char* reason;
};
} // namespace

// The framework's scanner writes this and ends the process with status 2. The program keeps from it what cannot be
// read, but not a failure that comes after the look, or one of every file there is.
static const char SCANNER[] = "input in scanner failed";

static const Excuse EXCUSES[] = {
    {"write", true, SILENT, "", "standard error itself cannot be written to"},
    {"memory", false, SIGNALLED, BEFORE_FAULTS_ARE_CAUGHT, "the framework faults before the dispositions are in force"},
    {"read", false, STATUS, SCANNER, "the framework's scanner meets the failure after the program has looked"},
    {"newfstatat", true, STATUS, SCANNER, "the framework's scanner meets the failure after the program has looked"},
};

std::string excuse_of(const Injection& injection, End end, const std::string& log)
{
  const auto found = std::find_if(std::begin(EXCUSES), std::end(EXCUSES), [&](const Excuse& excuse) {
    return injection.call == excuse.call && end == excuse.end && (injection.for_ever || !excuse.for_ever_only) &&
           contains(log, excuse.text);
  });
  return found == std::end(EXCUSES) ? "" : found->reason;
}
