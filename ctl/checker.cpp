#include "ctl/checker.h"

#include "check/characters.h"
#include "check/checker_options.h"
#include "ctl/checked_process.h"
#include "ctl/command_run.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <vector>

#include <unistd.h>

// The checker stands beside this program, as both are installed into one directory, or else in the PATH.
static std::string find_checker()
{
  std::error_code ignored; // an empty path finds no checker
  std::vector<std::string> directories{std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path()};
  const char* const path = std::getenv("PATH");
  std::istringstream list(path ? path : "");
  for (std::string directory; std::getline(list, directory, ':');)
    directories.push_back(directory);

  for (const std::string& directory : directories) {
    std::string checker = directory + "/starter-check";
    if (access(checker.c_str(), X_OK) == 0)
      return checker;
  }
  return "";
}

static std::vector<std::string> make_command(const std::string& checker, const Checked_Process& process)
{
  std::vector<std::string> command{checker, JSON_OPTION, ALLOW_WARNINGS_OPTION};
  const std::string runtime_dir = variable_of(process, "RUNTIME_DIRECTORY");
  if (!runtime_dir.empty()) // the unit has several if colons are in it, and the first one is that of the template
    command.insert(command.end(), {COMPARE_FILES_OPTION, runtime_dir.substr(0, runtime_dir.find(':')) + "/files"});

  // The process passes over an option of the checker, which would take it for its own.
  auto first = process.arguments.begin();
  while (first != process.arguments.end() && is_checker_option(*first))
    ++first;
  command.insert(command.end(), first, process.arguments.end());
  return command;
}

// The member of this name as a text, empty for any other type, such as the null that stands for the command line.
static std::string text_of(const Json& finding, const char* name)
{
  const auto at = finding.find(name);
  return at != finding.end() && at->is_string() ? at->get<std::string>() : "";
}

static std::string format_finding(const Json& finding)
{
  const std::string file = text_of(finding, "file");
  const auto line = finding.find("line");
  std::string text = file.empty() ? "command line" : file;
  if (line != finding.end() && line->is_number_integer())
    text += ':' + std::to_string(line->get<long long>());
  text += text_of(finding, "severity") == "warning" ? ": warning: " : ": ";
  return escape_controls(text + text_of(finding, "kind") + ": " + text_of(finding, "message")) + '\n';
}

static std::string escape_lines(const std::string& text)
{
  std::string result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    result += escape_controls(line) + '\n';
  return result;
}

static Check fail(const std::string& problem)
{
  Check check;
  check.problem = problem;
  return check;
}

static Check judge(const Command_Run& run)
{
  Check check;
  check.text = escape_lines(run.err);
  const Json report = Json::parse(run.out, nullptr, false);
  const auto findings = report.find("findings");
  if ((run.status != 0 && run.status != 1) || findings == report.end() || !findings->is_array()) {
    check.problem = "starter-check has failed";
    return check;
  }

  check.findings = *findings;
  for (const Json& finding : check.findings)
    check.text += format_finding(finding);
  check.result = run.status == 0 ? Check::PASSED : Check::REFUSED;
  return check;
}

Check check_process(pid_t pid, uid_t uid, Deadline deadline)
{
  Checked_Process process;
  std::string problem = look_at_process(pid, uid, process);
  if (!problem.empty())
    return fail(problem);
  const std::string checker = find_checker();
  if (checker.empty())
    return fail("there is no starter-check");

  const Command_Run run = run_command(
      make_command(checker, process), process.environment, [&] { return take_place_of(process); }, deadline);
  return run.problem.empty() ? judge(run) : fail("starter-check " + run.problem);
}
