#include "tests/support/program_options.h"

#include "tests/support/command.h"
#include "tests/support/starter_process.h"

#include <gtest/gtest.h>

// `text` is what getopt(3) takes: letters, with a colon after those that take an argument.
static void insert_short_options(const std::string& text, std::set<std::string>& options)
{
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] != ':' && text[i] != '-')
      options.insert(std::string("-") + text[i] + (text.compare(i + 1, 1, ":") == 0 ? "=" : ""));
}

std::set<std::string> program_options()
{
  const Temp_Dir dir;
  Start_Options start;
  start.preload.push_back(preload_library("option_probe"));
  start.env["OPTION_PROBE"] = dir / "options";
  Starter_Process starter({}, start);
  EXPECT_TRUE(starter.wait_for_event_loop()) << starter.log();

  std::set<std::string> options;
  for (const std::string& line : lines_of(read_file(dir / "options")))
    if (line.compare(0, 2, "--") == 0)
      options.insert(line);
    else
      insert_short_options(line, options);
  return options;
}
