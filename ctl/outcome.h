#ifndef CTL_OUTCOME_H
#define CTL_OUTCOME_H

#include <string>

/// The exit status of the command, as its manual page documents it.
enum Exit_Status {
  DONE = 0,
  REFUSED = 1,   ///< the process, or the checker before a reload, has refused; or the process has failed
  NOT_ASKED = 2, ///< misuse, or the process could not be asked
  UNKNOWN = 3,   ///< in place of NOT_ASKED for the command "health": monitoring takes 2 for a critical state
};

/// The end of a command: its exit status and what it writes.
struct Outcome
{
  int status = DONE;
  std::string out;
  std::string err;
};

#endif // CTL_OUTCOME_H
