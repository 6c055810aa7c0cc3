#ifndef CTL_CHECKER_H
#define CTL_CHECKER_H

#include "ctl/answer.h"
#include "ctl/connection.h"

#include <string>

#include <sys/types.h>

/// The answer of starter-check about a process that is to be reloaded.
struct Check
{
  enum Result {
    PASSED,  ///< no finding is an error
    REFUSED, ///< a finding is an error
    FAILED   ///< nothing can be said
  };

  Result result = FAILED;
  Json findings = Json::array(); ///< as starter-check --json writes them
  std::string text;              ///< the findings for people, one a line, and remarks of the checker
  std::string problem;           ///< one sentence, if it has failed
};

/// Let starter-check look at the configuration of the process `pid`, which belongs to the account `uid`, with the
/// arguments, in the directory and with the environment of the process. If the caller is root, the checker runs in the
/// file system, as the account and with the limits of the process: the libraries that it loads get no right that they
/// do not have in the process. The list of files that the unit has saved at the start is compared. Ends by the
/// deadline. One thread.
Check check_process(pid_t pid, uid_t uid, Deadline deadline);

#endif // CTL_CHECKER_H
