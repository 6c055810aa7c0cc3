#ifndef TESTS_SUPPORT_COMMAND_H
#define TESTS_SUPPORT_COMMAND_H

#include <string>
#include <vector>

/// What a command came to.
struct Ended
{
  int status;         ///< as exit status; negative when it did not exit
  std::string output; ///< what it wrote to standard output and standard error
};

/// Run `command`, a shell's, to its end.
Ended run(const std::string& command);

/// What `command` writes. The test fails if the command does.
std::string output_of(const std::string& command);

std::vector<std::string> lines_of(const std::string& text);

#endif // TESTS_SUPPORT_COMMAND_H
