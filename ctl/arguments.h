#ifndef CTL_ARGUMENTS_H
#define CTL_ARGUMENTS_H

#include "ctl/commands.h"

#include <string>

#include <sys/types.h>

/// The command line.
struct Arguments
{
  bool is_help = false;
  bool is_version = false;
  bool is_json = false;
  bool is_forced = false;
  std::string component;    ///< empty if it is not given
  std::string socket;       ///< likewise
  unsigned timeout_sec = 0; ///< 0 if it is not given
  pid_t signalled_pid = 0;  ///< of --or-signal; 0 if it is not given
  const Command* command = nullptr;
  std::string word; ///< the argument of the command, or empty
};

/// Read the command line. Options may stand before or behind the command; "--" ends them. Returns one sentence about
/// what is wrong with the line, or an empty one. Even then, `arguments.command` and `is_json` are set if the line has
/// them. Any thread.
std::string read_arguments(int argc, char** argv, Arguments& arguments);

#endif // CTL_ARGUMENTS_H
