#include "tests/support/loops.h"

#include <algorithm>

#include <signal.h>

const std::vector<int> FAULTS{SIGILL, SIGSEGV, SIGFPE, SIGALRM, SIGXCPU, SIGBUS, SIGABRT};

std::vector<std::string> with_service(std::vector<std::string> args, const std::string& target,
                                      const std::string& factory, const std::string& params)
{
  args.insert(args.end(), {"-S", dynamic_directive(target, target, factory, params)});
  return args;
}

bool wait_for_dispositions(Starter_Process& starter)
{
  while (starter.is_running()) {
    const std::string mask = starter.status_field("SigCgt");
    if (mask.empty())
      continue;
    const std::vector<int> caught = signals_in_mask(mask);
    if (std::count(caught.begin(), caught.end(), SIGUSR2)) // the last signal that gets a handler
      return true;
  }
  return false;
}

bool wait_for_loop(Starter_Process& starter, const Loop& loop)
{
  if (!starter.wait_for_record("is started."))
    return false;

  // The main thread of a pool rests as soon as it has made all threads. Some of these may not have ended yet.
  return loop.threads == 1 || (starter.wait_for_event_loop() && starter.wait_for_threads(loop.threads));
}
