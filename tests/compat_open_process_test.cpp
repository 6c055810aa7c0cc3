#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>

using Lines = std::vector<std::string>;

// Wait until strace has written `text` to `file`; false when a minute passes before that.
static bool wait_for(const std::string& file, const std::string& text)
{
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (read_file(file).find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// The beginning of strace's lines about the process `pid`.
static std::string line_start(pid_t pid)
{
  std::string start = std::to_string(pid);
  start.resize(std::max<std::size_t>(start.size(), 5), ' '); // as strace aligns them
  return start + ' ';
}

static Lines read_lines(const std::string& file)
{
  Lines lines;
  std::istringstream content(read_file(file));
  for (std::string line; std::getline(content, line);)
    lines.push_back(line);
  return lines;
}

static Lines::const_iterator find(const Lines& lines, Lines::const_iterator from, const std::string& text)
{
  return std::find_if(from, lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

static const char HANDLER_IN_MAIN[] = "rt_sigaction(SIGTERM, {sa_handler=0x";

TEST(compat_open_process, probes_at_every_start_before_main)
{
  NEEDS(can_trace(), "strace and the right to trace processes");
  const Temp_Dir dir;
  for (const char* const run : {"first", "second"}) {
    SCOPED_TRACE(run);
    const std::string file = dir / run;
    Start_Options options = probed();
    // With -D the tracer is a descendant of the process, which keeps the id that signals are sent to.
    options.wrapper = {"strace", "-D", "-f", "-o", file, "-e", "trace=openat,execve,rt_sigaction,select,pselect6"};
    options.env["ASAN_OPTIONS"] = "detect_leaks=0:verify_asan_link_order=0"; // the leak checker is a tracer too
    Starter_Process starter({}, options);
    ASSERT_TRUE(wait_for(file, "select")) << starter.log(); // the event loop runs
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();
    ASSERT_TRUE(wait_for(file, line_start(starter.pid()) + "+++ exited"));

    const Lines lines = read_lines(file);
    Lines::const_iterator at = lines.begin();
    for (const char* const call :
         {"openat(AT_FDCWD, \"/dev/null\", O_WRONLY|O_CLOEXEC) = ",
          "openat(AT_FDCWD, \"/dev/null\", O_WRONLY|O_CREAT|O_TRUNC|O_CLOEXEC, 0666) = ",
          "openat(AT_FDCWD, \"/dev/null\", O_WRONLY) = ", "execve(\"/bin/sh\", [\"sh\", \"-c\", ",
          "execve(\"/bin/true\", [\"/bin/true\"]", HANDLER_IN_MAIN}) {
      at = find(lines, at, call);
      ASSERT_NE(lines.end(), at) << "missing, or not in its place: " << call;
    }
  }
}
