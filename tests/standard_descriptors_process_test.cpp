#include "tests/support/starter_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <signal.h>

using ::testing::StartsWith;

// Starts the executable with the standard descriptors closed whose numbers stand in `closed`.
static Start_Options without(const std::string& closed)
{
  std::string command = "exec \"$@\" </dev/zero >/dev/full";
  for (const char fd : closed)
    command += std::string(" ") + fd + ">&-";

  Start_Options options = probed();
  options.wrapper = {"/bin/sh", "-c", command, "sh"};
  return options;
}

static std::string file_of(const Starter_Process& starter, char fd)
{
  std::error_code ignored; // a closed descriptor has no file
  return std::filesystem::read_symlink("/proc/" + std::to_string(starter.pid()) + "/fd/" + fd, ignored);
}

// The flags of open(2) that the descriptor has.
static unsigned long flags_of(const Starter_Process& starter, char fd)
{
  const std::string info = read_file("/proc/" + std::to_string(starter.pid()) + "/fdinfo/" + fd);
  const std::size_t at = info.find("flags:");
  return at == std::string::npos ? 0 : std::stoul(info.substr(at + 6), nullptr, 8);
}

TEST(standard_descriptors_process, can_be_read_written_and_inherited)
{
  Starter_Process starter({}, without("012"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  for (const char fd : {'0', '1', '2'})
    EXPECT_EQ(O_RDWR, static_cast<int>(flags_of(starter, fd) & (O_ACCMODE | O_CLOEXEC))) << fd;
}

TEST(standard_descriptors_process, are_opened_when_they_are_closed_at_the_start_and_left_alone_otherwise)
{
  for (const std::string& closed : std::vector<std::string>{"", "0", "1", "2", "01", "02", "12", "012"}) {
    SCOPED_TRACE("closed: " + closed);
    Starter_Process starter({}, without(closed));
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    const std::tuple<char, std::string> open_at_the_start[] = {{'0', "/dev/zero"}, {'1', "/dev/full"}, {'2', "pipe:"}};
    for (const auto& [fd, file] : open_at_the_start) {
      const bool was_closed = closed.find(fd) != std::string::npos;
      EXPECT_THAT(file_of(starter, fd), StartsWith(was_closed ? "/dev/null" : file)) << fd;
    }

    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}

// The descriptors of the reactor, too, keep clear of the numbers.
TEST(standard_descriptors_process, are_not_taken_by_a_reactor)
{
  for (const char* const type : {"select", "dev_poll", "priority"}) {
    SCOPED_TRACE(type);
    Starter_Process starter({"--reactor", type}, without("012"));
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    for (const char fd : {'0', '1', '2'})
      EXPECT_EQ("/dev/null", file_of(starter, fd));

    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}
