#include "tests/support/command.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include <sys/wait.h>

Ended run_for_stdout(const std::string& command)
{
  FILE* const pipe = popen(command.c_str(), "re");
  if (!pipe)
    return {-1, "cannot be run"};

  std::string output;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;)
    output.append(buf, n);
  const int status = pclose(pipe);

  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

Ended run(const std::string& command)
{
  return run_for_stdout("( " + command + "\n) 2>&1");
}

std::string output_of(const std::string& command)
{
  const Ended result = run(command);
  EXPECT_EQ(0, result.status) << command << '\n' << result.output;
  return result.output;
}

std::string without_newline(std::string text)
{
  if (!text.empty() && text.back() == '\n')
    text.pop_back();
  return text;
}

std::vector<std::string> lines_of(const std::string& text)
{
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}
