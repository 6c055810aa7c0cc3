// Asks a process of starter through the socket of the companion "control", and tells what it answers.

#include "ctl/arguments.h"
#include "ctl/performer.h"
#include "ctl/sockets.h"
#include "ctl/usage.h"
#include "starter/product_version.h"

#include <cstdio>
#include <string>

static Outcome run(int argc, char** argv)
{
  Arguments arguments;
  const std::string problem = read_arguments(argc, argv, arguments);
  if (!problem.empty())
    return not_asked(arguments, problem);
  if (arguments.is_help)
    return {DONE, USAGE, ""};
  if (arguments.is_version)
    return {DONE, "starterctl " STARTER_VERSION " (rev " STARTER_REVISION ")\n", ""};
  return perform(arguments, RUNTIME_DIR);
}

int main(int argc, char** argv)
{
  const Outcome outcome = run(argc, argv);
  const bool is_written = std::fputs(outcome.out.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  (void)std::fputs(outcome.err.c_str(), stderr); // nothing is left to be told of a failure
  return is_written || outcome.status != DONE ? outcome.status : NOT_ASKED;
}
