// Reports what the host would stumble over in a command line, before the host is started with it.

#include "check/checker_options.h"
#include "check/command_line_findings.h"
#include "check/reactor_findings.h"
#include "check/report.h"
#include "check/services.h"
#include "starter/product_version.h"

#include <ace/Log_Msg.h>

#include <cstdio>
#include <cstring>
#include <vector>

enum { CLEAN, WITH_FINDINGS, MISUSE };

static const char USAGE[] =
    "Usage: starter-check [--json] [ARGUMENT...]\n"
    "       starter-check --help | --version\n"
    "\n"
    "Report what starter would refuse, ignore or fail to load when it is started with the\n"
    "arguments. Options of the checker's own stand before them. No service is initialised.\n"
    "\n"
    "  --json     write the findings as a JSON object\n"
    "  --help     write this text\n"
    "  --version  write the version\n"
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

static int check(std::vector<char*>& line, bool json)
{
  const int argc = static_cast<int>(line.size());
  line.push_back(nullptr);

  Findings findings;
  check_command_line(argc, line.data(), findings);
  if (!check_reactor_limit(argc, line.data(), findings))
    return fail("cannot start a process to try a reactor in");
  if (!check_services(argc, line.data(), findings))
    return fail("cannot start a process to try a library in, or move to the directory /");

  const std::string report = json ? format_json(findings) : format_text(findings);
  return print(report.c_str(), findings.empty() ? CLEAN : WITH_FINDINGS);
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
  char host[] = "starter";
  const bool json = std::strcmp(option, JSON_OPTION) == 0;
  if (json)
    line.erase(line.begin() + 1);
  line[0] = host; // by what name it will be started is not known, and its arguments depend on that

  silence_framework();
  return check(line, json);
}
