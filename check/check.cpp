// Reports what the host would stumble over in a command line, before the host is started with it.

#include "check/checker_options.h"
#include "check/command_line_findings.h"
#include "check/file_list.h"
#include "check/reactor_findings.h"
#include "check/report.h"
#include "check/services.h"
#include "check/usage.h"
#include "starter/product_version.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

enum { CLEAN, WITH_FINDINGS, MISUSE };

static int print(const char* text, int status)
{
  return std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? status : MISUSE;
}

static int fail(const char* text)
{
  std::fprintf(stderr, "starter-check: %s\n", text);
  return MISUSE;
}

// Without this, the framework would write to standard error what the findings tell.
static void silence_framework()
{
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD);
}

struct Checker_Options
{
  bool allow_warnings = false;
  bool json = false;
  bool quiet = false;
  std::string save_files; // absolute paths, or empty
  std::string compare_files;
};

// Takes the checker's own options out of the line. False when one of them lacks its value.
static bool take_options(std::vector<char*>& line, Checker_Options& options)
{
  std::size_t i = 1;
  for (; i < line.size(); ++i) {
    const bool saves = std::strcmp(line[i], SAVE_FILES_OPTION) == 0;
    if (std::strcmp(line[i], ALLOW_WARNINGS_OPTION) == 0)
      options.allow_warnings = true;
    else if (std::strcmp(line[i], JSON_OPTION) == 0)
      options.json = true;
    else if (std::strcmp(line[i], QUIET_OPTION) == 0 || std::strcmp(line[i], SHORT_QUIET_OPTION) == 0)
      options.quiet = true;
    else if (!saves && std::strcmp(line[i], COMPARE_FILES_OPTION) != 0)
      break;
    else if (++i == line.size() || !*line[i])
      return false;
    else // the working directory may change before the file is opened
      (saves ? options.save_files : options.compare_files) = std::filesystem::absolute(line[i]);
  }
  line.erase(line.begin() + 1, line.begin() + static_cast<std::ptrdiff_t>(i));
  return true;
}

// Compares the list of files with a saved one. A list that is not there, as when the host was started by an older unit,
// is told of and no reason to fail.
static void compare_with_saved_list(const std::string& path, const File_List& files, Findings& findings)
{
  File_List at_start;
  if (load_file_list(path, at_start))
    compare_file_lists(at_start, files, findings);
  else
    std::fprintf(stderr, "starter-check: cannot read %s, so new files and files that are gone are not found: %s\n",
                 path.c_str(), std::strerror(errno));
}

static bool has_errors(const Findings& findings)
{
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.is_error(); });
}

// Before a start, every millisecond delays the component. The list takes neither findings nor probes.
static int save_files(std::vector<char*>& line, const std::string& path)
{
  const int argc = static_cast<int>(line.size());
  line.push_back(nullptr);

  File_List files;
  const bool is_saved = list_configuration_files(argc, line.data(), files) && save_file_list(path, files);
  return is_saved ? CLEAN : fail("cannot write the list of files");
}

static int check(std::vector<char*>& line, const Checker_Options& options)
{
  const int argc = static_cast<int>(line.size());
  line.push_back(nullptr);

  Findings findings;
  check_command_line(argc, line.data(), findings);
  if (!check_reactor_limit(argc, line.data(), findings))
    return fail("cannot start a process to try a reactor in");
  Checked_Configuration checked;
  if (!check_services(argc, line.data(), findings, checked))
    return fail("cannot start a process to try a library in, or move to the directory /");
  if (!options.compare_files.empty())
    compare_with_saved_list(options.compare_files, checked.files, findings);

  if (findings.empty() && !options.quiet && !options.json)
    std::fputs(format_nothing(checked).c_str(), stderr); // tools find nothing but findings on standard output
  const std::string report = options.json ? format_json(findings, checked) : format_text(findings);
  const bool is_clean = options.allow_warnings ? !has_errors(findings) : findings.empty();
  return print(report.c_str(), is_clean ? CLEAN : WITH_FINDINGS);
}

int main(int argc, char** argv)
{
  std::vector<char*> line(argv, argv + argc);
  if (line.empty())
    return fail("started without a name");

  const char* const option = argc > 1 ? argv[1] : "";
  const bool is_help = std::strcmp(option, HELP_OPTION) == 0;
  if (is_help || std::strcmp(option, VERSION_OPTION) == 0) {
    if (argc > 2)
      return fail("--help and --version stand alone");
    return print(is_help ? USAGE : "starter-check " STARTER_VERSION " (rev " STARTER_REVISION ")\n", CLEAN);
  }
  Checker_Options options;
  if (!take_options(line, options))
    return fail("--save-files and --compare-files take the path of a file");
  if (!options.save_files.empty() &&
      (options.json || options.allow_warnings || options.quiet || !options.compare_files.empty()))
    return fail("--save-files checks nothing, and takes no other option of the checker's own");
  char host[] = "starter";
  line[0] = host; // by what name it will be started is not known, and its arguments depend on that

  silence_framework();
  return options.save_files.empty() ? check(line, options) : save_files(line, options.save_files);
}
