#ifndef CTL_COMMAND_RUN_H
#define CTL_COMMAND_RUN_H

#include "ctl/connection.h"

#include <functional>
#include <string>
#include <vector>

/// How a command has ended, and what it has written.
struct Command_Run
{
  int status = -1; ///< its exit status; -1 if a signal has ended it
  std::string out;
  std::string err;
  std::string problem; ///< why there is no result, such as "has not ended in time"; or empty
};

/// Execute `command`, a path and arguments, with the environment `environment`, NAME=VALUE each, and read what it
/// writes, up to 4 MiB of each stream. `prepare` is called in the new process before; unless it returns 0, the command
/// is not executed, and its errno is told on the standard error. The command is killed at the deadline. One thread.
Command_Run run_command(std::vector<std::string> command, std::vector<std::string> environment,
                        const std::function<int()>& prepare, Deadline deadline);

#endif // CTL_COMMAND_RUN_H
