#include "check/signal_findings.h"

#include "check/configurator.h"

#include <csignal>
#include <cstdlib>

// A value that is no number counts as 0, as it does for the configurator.
static bool is_catchable(const char* text)
{
  const int signo = std::atoi(text);
  struct sigaction action;
  return signo > 0 && signo != SIGKILL && signo != SIGSTOP && sigaction(signo, nullptr, &action) == 0;
}

void check_signals(int argc, char** argv, Findings& findings)
{
  for (const auto& [letter, value] : taken_process_options(argc, argv))
    if (letter == 's' && !is_catchable(value.c_str()))
      findings.push_back({Finding_Kind::BAD_SIGNAL,
                          {},
                          "-s '" + value + "' is no number of a signal that can be caught: no service is loaded"});
}
