#ifndef TESTS_SUPPORT_COMMAND_H
#define TESTS_SUPPORT_COMMAND_H

#include <string>
#include <vector>

/// How a command ended, and what it wrote.
struct Ended
{
  int status;         ///< the exit status; negative when the command did not exit
  std::string output; ///< what the command wrote to standard output and standard error
};

/// Run `command` in a shell and wait for its end.
Ended run(const std::string& command);

/// Like run(), but with the standard output alone in `output`. The command shares the standard error of the test.
Ended run_for_stdout(const std::string& command);

/// Returns what `command` writes to standard output and standard error. The test fails if the command does.
std::string output_of(const std::string& command);

/// `text` without the newline at its end, if it has one.
std::string without_newline(std::string text);

std::vector<std::string> lines_of(const std::string& text);

#endif // TESTS_SUPPORT_COMMAND_H
