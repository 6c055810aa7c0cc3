// Reports what the host would stumble over in a command line, before the host is started with it.

#include "check/checker_options.h"
#include "check/command_line_findings.h"
#include "check/reactor_findings.h"
#include "check/report.h"
#include "check/services.h"
#include "starter/product_version.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

enum { CLEAN, WITH_FINDINGS, MISUSE };

static const char USAGE[] =
    "Usage: starter-check [--allow-warnings] [--json] [ARGUMENT...]\n"
    "       starter-check --help | --version\n"
    "\n"
    "Report what starter would refuse, ignore or fail to load when it is started with the\n"
    "arguments. Options of the checker's own stand before them. No service is initialised.\n"
    "\n"
    "  --allow-warnings  let findings that are only warnings pass: the exit status is 0\n"
    "  --json            write the findings as a JSON object\n"
    "  --help            write this text\n"
    "  --version         write the version\n"
    "\n"
    "Exit status: 0 nothing found, 1 with findings, 2 for misuse, or when nothing can be said.\n";

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
};

// Takes the checker's own options out of the line.
static Checker_Options take_options(std::vector<char*>& line)
{
  Checker_Options options;
  for (; line.size() > 1; line.erase(line.begin() + 1))
    if (std::strcmp(line[1], ALLOW_WARNINGS_OPTION) == 0)
      options.allow_warnings = true;
    else if (std::strcmp(line[1], JSON_OPTION) == 0)
      options.json = true;
    else
      break;
  return options;
}

static bool has_errors(const Findings& findings)
{
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.is_error(); });
}

static int check(std::vector<char*>& line, const Checker_Options& options)
{
  const int argc = static_cast<int>(line.size());
  line.push_back(nullptr);

  Findings findings;
  check_command_line(argc, line.data(), findings);
  if (!check_reactor_limit(argc, line.data(), findings))
    return fail("cannot start a process to try a reactor in");
  if (!check_services(argc, line.data(), findings))
    return fail("cannot start a process to try a library in, or move to the directory /");

  const std::string report = options.json ? format_json(findings) : format_text(findings);
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
  const Checker_Options options = take_options(line);
  char host[] = "starter";
  line[0] = host; // by what name it will be started is not known, and its arguments depend on that

  silence_framework();
  return check(line, options);
}
