#include "starter/starter.h"

#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <tuple>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

// These stand in for functions of the C library in the program: the kernel's file may be another file, and closing may
// change errno.
static std::string instead;
static bool close_spoils_errno;
static int opened_with;
static int still_open;

extern "C" int open64(const char* path, int flags, ...)
{
  static auto* const real = reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open64"));

  va_list args;
  va_start(args, flags);
  const unsigned mode = flags & O_CREAT ? va_arg(args, unsigned) : 0;
  va_end(args);

  if (instead.empty() || std::string(path) != "/proc/sys/vm/swappiness")
    return real(path, flags, mode);
  opened_with = flags;
  const int fd = real(instead.c_str(), flags, mode);
  if (fd != -1)
    ++still_open;
  return fd;
}

extern "C" int close(int fd)
{
  static auto* const real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));

  const int result = real(fd);
  if (close_spoils_errno) {
    --still_open;
    errno = EINTR;
  }
  return result;
}

// The result of get_vm_swappiness with the file at `path` in place of the kernel's, and `errno` afterwards.
static std::tuple<short, int> read_from(const std::string& path)
{
  instead = path;
  opened_with = -1;
  still_open = 0;
  close_spoils_errno = true;
  const short swappiness = get_vm_swappiness();
  const int error = errno;
  close_spoils_errno = false;
  instead.clear();

  EXPECT_EQ(0, opened_with) << "read-only, nothing else";
  EXPECT_EQ(0, still_open);
  return {swappiness, error};
}

TEST(get_vm_swappiness, is_what_the_kernel_says)
{
  EXPECT_EQ(std::stoi(read_file("/proc/sys/vm/swappiness")), get_vm_swappiness());
}

TEST(get_vm_swappiness, reads_one_two_and_three_digits_up_to_the_newline)
{
  const std::pair<const char*, short> cases[] = {{"0\n", 0},     {"7\n", 7},      {"60\n", 60}, {"100\n", 100},
                                                 {"200\n", 200}, {"1000\n", 100}, {"60", 60},   {"6\n5\n", 6},
                                                 {"007\n", 7},   {"+60\n", 60}};
  const Temp_Dir dir;

  for (const auto& [text, value] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(value, std::get<0>(read_from(dir.write("swappiness", text))));
  }
}

TEST(get_vm_swappiness, is_0_for_a_text_without_leading_digits)
{
  const Temp_Dir dir;

  for (const char* const text : {"\n", "abc\n", " 60\n", "x60"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(0, std::get<0>(read_from(dir.write("swappiness", text))));
  }
}

TEST(get_vm_swappiness, fails_with_the_error_of_open)
{
  const Log_Capture capture;

  instead = "/nowhere/swappiness";
  const short swappiness = get_vm_swappiness();
  const int error = errno;

  EXPECT_EQ(-1, swappiness);
  EXPECT_EQ(ENOENT, error);
  EXPECT_TRUE(capture.records().empty());
}

TEST(get_vm_swappiness, fails_with_the_error_of_read_which_closing_does_not_hide)
{
  const Temp_Dir dir;

  EXPECT_EQ(std::tuple(-1, EISDIR), read_from(dir.path())); // a directory can be opened, but not read
}

TEST(get_vm_swappiness, fails_for_an_empty_file_and_leaves_errno_alone)
{
  const Temp_Dir dir;

  instead = dir.write("swappiness", "");
  errno = ENOTTY;
  EXPECT_EQ(-1, get_vm_swappiness());
  EXPECT_EQ(ENOTTY, errno);
}
