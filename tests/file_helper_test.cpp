#include "starter/starter.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <tuple>

#include <sys/stat.h>
#include <unistd.h>

TEST(find_file_extension, points_to_the_last_dot)
{
  const std::tuple<const char*, int> cases[] = {{"a.conf", 1},    {"a.conf.bak", 6}, {".conf", 0}, {"a.", 1},
                                                {"x.d/name", 1},  {"..", 1},         {".", 0},     {"name", -1},
                                                {"x/y/name", -1}, {" ", -1}};

  for (const auto& [path, at] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(at < 0 ? nullptr : path + at, find_file_extension(path));
  }
}

TEST(find_file_extension, is_null_without_a_path)
{
  EXPECT_EQ(nullptr, find_file_extension(nullptr));
  EXPECT_EQ(nullptr, find_file_extension(""));
}

TEST(is_file_extension, compares_what_follows_the_last_dot)
{
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"a.conf", "conf", true},     {".conf", "conf", true},       {"dir.x/a.conf", "conf", true},
      {"a.bak.conf", "conf", true}, {"a.conf.bak", "conf", false}, {"A.CONF", "conf", false},
      {"a.confx", "conf", false},   {"a.con", "conf", false},      {"a.", "conf", false},
      {"conf", "conf", false},      {"a.conf", ".conf", false},    {"a.tar.gz", "tar.gz", false},
      {"a.conf ", "conf", false}};

  for (const auto& [path, ext, result] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(result, is_file_extension(path, ext));
  }
}

TEST(is_file_extension, is_false_without_a_path_or_an_extension)
{
  EXPECT_FALSE(is_file_extension(nullptr, "conf"));
  EXPECT_FALSE(is_file_extension("", "conf"));
  EXPECT_FALSE(is_file_extension("a.conf", nullptr));
  EXPECT_FALSE(is_file_extension("a.", "")); // two empty texts do not count as equal
  EXPECT_FALSE(is_file_extension(nullptr, nullptr));
}

TEST(is_regular_file, follows_links_to_what_they_name)
{
  const Temp_Dir dir;
  dir.write("file", "");
  ASSERT_EQ(0, mkdir((dir / "directory").c_str(), 0777));
  ASSERT_EQ(0, mkfifo((dir / "fifo").c_str(), 0666));
  ASSERT_EQ(0, symlink("file", (dir / "link-to-file").c_str()));
  ASSERT_EQ(0, symlink("directory", (dir / "link-to-directory").c_str()));
  ASSERT_EQ(0, symlink("nothing", (dir / "link-to-nothing").c_str()));
  const std::tuple<const char*, bool> cases[] = {
      {"file", true},    {"link-to-file", true},       {"directory", false},
      {"fifo", false},   {"link-to-directory", false}, {"link-to-nothing", false},
      {"missing", false}};

  for (const auto& [name, result] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(result, is_regular_file((dir / name).c_str()));
  }
  EXPECT_FALSE(is_regular_file("/dev/null"));
}

TEST(is_regular_file, leaves_the_reason_in_errno)
{
  const Temp_Dir dir;
  const std::string file = dir.write("file", "");

  errno = 0;
  EXPECT_FALSE(is_regular_file((dir / "missing").c_str()));
  EXPECT_EQ(ENOENT, errno);

  errno = 0;
  EXPECT_FALSE(is_regular_file((file + "/below").c_str()));
  EXPECT_EQ(ENOTDIR, errno);

  EXPECT_FALSE(is_regular_file(""));
}

TEST(look_into, reads_files_of_every_size_to_their_end)
{
  const Temp_Dir dir;
  const std::size_t sizes[] = {0, 1, 4095, 4096, 4097, 20000};

  for (const std::size_t size : sizes) {
    SCOPED_TRACE(size);
    EXPECT_EQ(Content::READABLE, look_into(dir.write("file", std::string(size, '#')).c_str()));
  }
}

TEST(look_into, tells_what_opens_and_cannot_be_read)
{
  const Temp_Dir dir;
  ASSERT_EQ(0, mkdir((dir / "directory").c_str(), 0777));
  const std::tuple<std::string, Content, int> cases[] = {
      {dir / "directory", Content::UNREADABLE, EISDIR},
      {"/proc/self/mem", Content::UNREADABLE, EIO}, // a regular file of size 0, of which nobody can read the first byte
      {"/proc/self/status", Content::READABLE, 0},  // another one, which has a content all the same
      {dir / "missing", Content::NOT_OPENED, ENOENT}};

  for (const auto& [path, content, error] : cases) {
    SCOPED_TRACE(path);
    errno = 0;
    EXPECT_EQ(content, look_into(path.c_str()));
    if (error != 0) {
      EXPECT_EQ(error, errno);
    }
  }
}
