#ifndef CHECK_FINDING_H
#define CHECK_FINDING_H

#include <string>
#include <vector>

/// Something that the host would stumble over, refuse or ignore.
struct Finding
{
  std::string kind;    ///< one of the names that the manual page lists
  std::string file;    ///< empty: the command line
  int line;            ///< in `file`, from 1; 0: no particular one
  std::string message; ///< one line
};

using Findings = std::vector<Finding>;

#endif // CHECK_FINDING_H
