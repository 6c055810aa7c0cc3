#include "tests/support/syscall_trace.h"

#include "tests/support/wait_until.h"

#include <cstdlib>
#include <regex>
#include <sstream>
#include <stdexcept>

void make_traceable(Start_Options& options)
{
  const char* const asan = std::getenv("ASAN_OPTIONS");
  options.env["ASAN_OPTIONS"] = (asan ? std::string(asan) + ':' : "") + "detect_leaks=0";
}

void Syscall_Trace::apply_to(Start_Options& options) const
{
  // With -D the tracer is the descendant. Otherwise it would have the process id that signals are sent to.
  const std::vector<std::string> tracer{"strace", "-D", "-f", "-o", file(), "-e", "trace=" + names_};
  options.wrapper.insert(options.wrapper.end(), tracer.begin(), tracer.end());
  make_traceable(options);
}

// The lines of the process or thread `pid`, without its id and the blanks behind it.
static std::vector<std::string> lines_of(pid_t pid, const std::string& trace)
{
  const std::string id = std::to_string(pid) + ' ';
  std::vector<std::string> lines;
  std::istringstream in(trace);
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, id.size(), id) == 0)
      lines.push_back(line.substr(line.find_first_not_of(' ', id.size())));
  return lines;
}

std::vector<std::string> Syscall_Trace::calls(pid_t pid) const
{
  std::vector<std::string> lines;
  const bool ended = wait_until([&] {
    lines = lines_of(pid, read_file(file()));
    return !lines.empty() && lines.back().compare(0, 4, "+++ ") == 0;
  });
  if (!ended)
    throw std::runtime_error("the trace has no end");

  static const std::regex call("^([a-z_0-9]+\\(.*[^ ]) += (.*)$");
  std::vector<std::string> calls;
  std::smatch match;
  for (const std::string& line : lines)
    if (std::regex_match(line, match, call))
      calls.push_back(match.str(1) + " = " + match.str(2));
  return calls;
}
