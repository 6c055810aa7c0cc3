#ifndef CTL_CHECKED_PROCESS_H
#define CTL_CHECKED_PROCESS_H

#include "ctl/connection.h"

#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/types.h>

/// The things that a checker has to know of a process to see the files, the variables and the limits that it sees.
struct Checked_Process
{
  std::vector<std::string> arguments;   ///< without the name of the program
  std::vector<std::string> environment; ///< NAME=VALUE each
  Descriptor root;                      ///< of its file system; none if it is the caller's
  Descriptor directory;                 ///< in which it works; none if the caller may not know
  uid_t uid = 0;
  gid_t gid = 0;
  std::vector<gid_t> groups;
  rlimit descriptors = {};
};

/// Look at the process `pid`, which has to belong to the account `uid`. What the caller has no right to see is taken
/// from the caller itself: in a unit, its commands share the directory, the variables and the limits of the process.
/// Root does not fill gaps so, as the account of the process must not get to know root's variables. Returns an empty
/// text, or one sentence about what is missing. One thread.
std::string look_at_process(pid_t pid, uid_t uid, Checked_Process& process);

/// Give the calling process, which is to execute the checker, the directory and the limits of the process; with the
/// right of root, its file system and its account too. It never gets a new right again. Returns 0, or -1 with errno.
/// For a forked child.
int take_place_of(const Checked_Process& process);

/// The value of the variable `name` in its environment; empty if it is not set.
std::string variable_of(const Checked_Process& process, const std::string& name);

#endif // CTL_CHECKED_PROCESS_H
