#include "scrt/path_conf.h"

#include "tests/support/child.h"
#include "tests/support/failing_strdup.h"
#include "tests/support/log_capture.h"
#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <ace/Default_Constants.h>
#include <ace/Log_Priority.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

static mode_t mode_of(const std::string& path)
{
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? st.st_mode & 07777 : 0;
}

static bool exists(const std::string& path)
{
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// An environment variable that is set as long as this object lives.
class Variable
{
public:
  Variable(const std::string& name, const std::string& value) : name_(name) { setenv(name.c_str(), value.c_str(), 1); }
  ~Variable() { unsetenv(name_.c_str()); }

private:
  const std::string name_;
};

static const char SOURCE[] = "scrt/path_conf.cpp";

static void expect_failure(const Log_Capture& log, int number, const std::string& text)
{
  ASSERT_EQ(1u, log.records().size());
  const Record& record = log.records().front();
  EXPECT_EQ(error_failed(text).in(SOURCE), with_file(record));
  EXPECT_EQ(number, record.error);
}

TEST(path_conf, creates_prefix_and_sub_directory_and_names_the_file)
{
  const Temp_Dir dir;
  const Log_Capture log;
  const mode_t mask = umask(022);
  const Path_Conf path((dir / "a").c_str(), "svc", true, "svc.conf", 0750);
  umask(mask);

  EXPECT_EQ(dir / "a/svc/svc.conf", path.str());
  EXPECT_EQ(0750u, mode_of(dir / "a"));
  EXPECT_EQ(0750u, mode_of(dir / "a/svc"));
  EXPECT_FALSE(exists(dir / "a/svc/svc.conf"));
  EXPECT_TRUE(log.records().empty());
}

TEST(path_conf, creates_the_prefix_alone)
{
  const Temp_Dir dir;
  const Path_Conf path((dir / "a/b").c_str(), true, "c.conf", 0700);

  EXPECT_EQ(dir / "a/b/c.conf", path.str());
  EXPECT_EQ(0700u, mode_of(dir / "a/b"));
  EXPECT_FALSE(exists(dir / "a/b/c.conf"));
}

TEST(path_conf, is_silent_about_a_directory_that_exists)
{
  const Temp_Dir dir;
  const Log_Capture log;
  const Path_Conf path(dir.path().c_str(), true, nullptr, 0700);

  EXPECT_EQ(dir.path(), path.str());
  EXPECT_TRUE(log.records().empty());
}

TEST(path_conf, creates_no_directory_unless_told_to)
{
  const Temp_Dir dir;
  const Log_Capture log;
  const Path_Conf one((dir / "a").c_str(), false, "b", 0755);
  const Path_Conf two((dir / "a").c_str(), "s", false, "b", 0755);

  EXPECT_EQ(dir / "a/b", one.str());
  EXPECT_EQ(dir / "a/s/b", two.str());
  EXPECT_FALSE(exists(dir / "a"));
  EXPECT_TRUE(log.records().empty());
}

TEST(path_conf, joins_the_parts_unchanged)
{
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"p", "s", "b", "p/s/b"},     {"p", "", "b", "p/b"},      {"p", nullptr, "b", "p/b"},
      {"p", "s", "", "p/s"},        {"p", "s", nullptr, "p/s"}, {"p", "", "", "p"},
      {"p", nullptr, nullptr, "p"}, {"/", "s", "b", "//s/b"},   {"p/", "s/", "b", "p//s//b"},
      {"p", "/s", "/b", "p//s//b"}, {".", "..", "b", "./../b"}};

  for (const auto& [prefix, sub, basename, expected] : cases) {
    SCOPED_TRACE(expected);
    EXPECT_EQ(expected, Path_Conf(prefix, sub, false, basename, 0).str());
    if (!sub || !*sub) {
      EXPECT_EQ(expected, Path_Conf(prefix, false, basename, 0).str());
    }
  }
}

TEST(path_conf, expands_the_first_variable_of_the_prefix)
{
  const Variable set("PATH_CONF_TEST", "value");
  const Variable nested("PATH_CONF_NESTED", "$PATH_CONF_TEST");
  const Variable empty("PATH_CONF_EMPTY", "");
  unsetenv("PATH_CONF_UNSET");

  const std::pair<const char*, const char*> cases[] = {
      {"$PATH_CONF_TEST", "value"},
      {"$PATH_CONF_TEST/a", "value/a"},
      {"/a/$PATH_CONF_TEST/b", "/a/value/b"},
      {"pre$PATH_CONF_TEST.d", "prevalue.d"},
      {"$PATH_CONF_EMPTY/a", "/a"},
      {"$PATH_CONF_TEST/$PATH_CONF_TEST", "value/$PATH_CONF_TEST"}, // only the first variable
      {"$PATH_CONF_UNSET/a", "$PATH_CONF_UNSET/a"},
      {"$PATH_CONF_UNSET/$PATH_CONF_TEST", "$PATH_CONF_UNSET/$PATH_CONF_TEST"},
      {"${PATH_CONF_TEST}/a", "${PATH_CONF_TEST}/a"},
      {"$PATH_CONF_NESTED/a", "$PATH_CONF_TEST/a"}, // an expanded value is not expanded again
      {"a$", "a$"},
      {"~/a", "~/a"}};

  for (const auto& [prefix, expected] : cases) {
    SCOPED_TRACE(prefix);
    EXPECT_EQ(expected, Path_Conf(prefix, false, nullptr, 0).str());
  }
}

TEST(path_conf, expands_the_sub_directory_with_the_prefix_but_not_the_base_name)
{
  const Variable set("PATH_CONF_TEST", "value");

  EXPECT_EQ("p/value/b", Path_Conf("p", "$PATH_CONF_TEST", false, "b", 0).str());
  EXPECT_EQ("value/$PATH_CONF_TEST/b", Path_Conf("$PATH_CONF_TEST", "$PATH_CONF_TEST", false, "b", 0).str());
  EXPECT_EQ("p/$PATH_CONF_TEST", Path_Conf("p", false, "$PATH_CONF_TEST", 0).str());
}

TEST(path_conf, creates_the_expanded_directory)
{
  const Temp_Dir dir;
  const Variable set("PATH_CONF_TEST", dir.path());
  const Path_Conf path("$PATH_CONF_TEST/a", "b", true, "c", 0755);

  EXPECT_EQ(dir / "a/b/c", path.str());
  EXPECT_NE(0u, mode_of(dir / "a/b"));
}

TEST(path_conf, builds_the_path_although_the_directory_cannot_be_created)
{
  const Temp_Dir dir;
  dir.write("file", "");
  const std::string prefix = dir / "file/a";
  const Log_Capture log;
  const Path_Conf path(prefix.c_str(), true, "b", 0755);

  EXPECT_EQ(prefix + "/b", path.str());
  expect_failure(log, ENOTDIR,
                 "Failed to mkdir " + prefix + ", errno=" + std::to_string(ENOTDIR) + ", Not a directory\n");
}

TEST(path_conf, logs_the_expanded_directory_that_cannot_be_created)
{
  const Temp_Dir dir;
  dir.write("file", "");
  const Variable set("PATH_CONF_TEST", dir / "file");
  const Log_Capture log;
  const Path_Conf path("$PATH_CONF_TEST", "a", true, "b", 0755);

  EXPECT_EQ(dir / "file/a/b", path.str());
  expect_failure(log, ENOTDIR,
                 "Failed to mkdir " + (dir / "file/a") + ", errno=" + std::to_string(ENOTDIR) + ", Not a directory\n");
}

TEST(path_conf, is_silent_when_the_creation_reports_that_it_exists)
{
  const Temp_Dir dir;
  const Log_Capture log;
  const Failing_Strdup failing(EEXIST, 1); // the copy of the path that mkdir_p works on
  const Path_Conf path((dir / "a").c_str(), true, "b", 0755);

  EXPECT_FALSE(exists(dir / "a"));
  EXPECT_EQ(dir / "a/b", path.str());
  EXPECT_TRUE(log.records().empty());
}

TEST(path_conf, logs_with_a_back_trace_that_there_is_no_prefix)
{
  const std::string head = "Unexpected error in scrt/path_conf.cpp:";
  const std::string tail = ", prefix is NULL or \"\":\n";

  for (const char* const prefix : {static_cast<const char*>(nullptr), ""})
    for (const bool with_sub : {false, true}) {
      SCOPED_TRACE(std::string(prefix ? "empty" : "null") + (with_sub ? ", with a sub-directory" : ""));
      const Log_Capture log;
      errno = EPERM; // an old errno, which the record carries along
      const std::string path =
          with_sub ? Path_Conf(prefix, "s", true, "b", 0755).str() : Path_Conf(prefix, true, "b", 0755).str();

      EXPECT_EQ("", path);
      ASSERT_EQ(1u, log.records().size());
      const Record& record = log.records().front();
      EXPECT_EQ(EPERM, record.error);
      const std::string start = head + std::to_string(record.line) + tail;
      EXPECT_THAT(with_file(record), BeginsLike(emergency_failed(start).in(SOURCE)));
      EXPECT_NE(std::string::npos, record.text.find("path_conf_test", start.size())) << record.text; // its own frame
    }
}

TEST(path_conf, stays_empty_when_the_prefix_cannot_be_expanded)
{
  const Temp_Dir dir;
  const std::string prefix = dir / "a$HOME";
  const Log_Capture log;
  const Failing_Strdup failing(ENOMEM);
  const Path_Conf path(prefix.c_str(), true, "b", 0755);

  EXPECT_EQ("", path.str());
  expect_failure(log, ENOMEM,
                 "Failed to strenvdup '" + prefix + "', errno=" + std::to_string(ENOMEM) +
                     ", Cannot allocate memory\n");
}

TEST(path_conf, refuses_a_variable_name_that_the_framework_cannot_hold)
{
  const std::string longest(ACE_DEFAULT_ARGV_BUFSIZ - 1, 'N');
  const Log_Capture log;
  EXPECT_EQ('$' + longest + "/a", Path_Conf(('$' + longest).c_str(), false, "a", 0).str());
  {
    const Variable set(longest, "value");
    EXPECT_EQ("p/value/s/a", Path_Conf(("p/$" + longest).c_str(), "s", false, "a", 0).str());
  }
  EXPECT_EQ('$' + longest + "'N/a", Path_Conf(('$' + longest + "'N").c_str(), false, "a", 0).str());
  EXPECT_TRUE(log.records().empty());

  const Path_Conf path(("$N" + longest).c_str(), false, "a", 0);
  EXPECT_EQ("", path.str());
  ASSERT_EQ(1u, log.records().size());
  const Record& record = log.records().front();
  EXPECT_EQ(ENAMETOOLONG, record.error);
  // The record has no room for the whole name.
  EXPECT_THAT(with_file(record), BeginsLike(error_failed("Failed to strenvdup '$N").in(SOURCE)));
}

TEST(path_conf, creates_nothing_of_a_prefix_that_cannot_be_expanded)
{
  const Temp_Dir dir;
  const std::string prefix = dir / "a/$" + std::string(ACE_DEFAULT_ARGV_BUFSIZ, 'N');
  const Log_Capture log;
  const Path_Conf path(prefix.c_str(), true, "b", 0755);

  EXPECT_EQ("", path.str());
  EXPECT_FALSE(exists(dir / "a"));
}

TEST(path_conf, takes_a_text_that_grows_beyond_the_framework_s_buffer)
{
  const std::string value(10000, 'v');
  const Variable set("PATH_CONF_TEST", value);

  EXPECT_EQ("a/" + value + "/b", Path_Conf("a/$PATH_CONF_TEST", false, "b", 0).str());
  EXPECT_EQ(value + "/b", Path_Conf(value.c_str(), false, "b", 0).str());
}

// Limits the address space of the process to `more` bytes than it has now.
static void limit_memory(std::size_t more)
{
  std::size_t pages = 0;
  std::istringstream(read_file("/proc/self/statm")) >> pages;
  const rlim_t limit = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) + more;
  const rlimit limits{limit, limit};
  setrlimit(RLIMIT_AS, &limits);
}

TEST(path_conf, keeps_no_memory_when_there_is_too_little_for_the_path)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "A sanitizer needs more address space than could be limited";
#endif
  // There is memory for the expanded text, but not for the path. A text that stays allocated would make the next
  // expansion fail.
  Child poor([] {
    const std::size_t size = 64 << 20;
    const std::string prefix(size, 'p');
    const Log_Capture log;
    limit_memory(size + size / 2);

    std::string outcome;
    for (unsigned i = 0; i < 3; ++i)
      try {
        const Path_Conf path(prefix.c_str(), false, nullptr, 0);
        outcome += path.str().empty() ? "not expanded " : "built ";
      } catch (const std::bad_alloc&) {
        outcome += "bad_alloc ";
      }
    return outcome;
  });
  EXPECT_EQ("bad_alloc bad_alloc bad_alloc ", poor.result());
}

TEST(path_conf, cuts_a_record_about_a_path_beyond_any_limit)
{
  const std::string prefix(1000000, 'p');
  const Log_Capture log;
  const Path_Conf path(prefix.c_str(), true, "b", 0755);

  EXPECT_EQ(prefix + "/b", path.str());
  ASSERT_EQ(1u, log.records().size());
  const Record& record = log.records().front();
  EXPECT_EQ(ENAMETOOLONG, record.error);
  EXPECT_THAT(with_file(record), BeginsLike(error_failed("Failed to mkdir ppp").in(SOURCE)));
}

TEST(path_conf, appends_texts_that_are_not_null_or_empty)
{
  Path_Conf path("p", false, nullptr, 0);

  EXPECT_EQ(&path, &path.append("a"));
  EXPECT_EQ("p/a", path.str());
  EXPECT_EQ(&path, &path.append(""));
  EXPECT_EQ(&path, &path.append(nullptr));
  EXPECT_EQ("p/a", path.str());
  EXPECT_EQ("p/a/b//c", path.append("b").append("/c").str());
}

TEST(path_conf, appends_to_a_path_that_could_not_be_built)
{
  const Log_Capture log;
  Path_Conf path(nullptr, false, "b", 0);

  EXPECT_EQ("/a", path.append("a").str());
}

TEST(path_conf, replaces_every_occurrence_from_left_to_right)
{
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"/a/%n/%n.conf", "%n", "svc", "/a/svc/svc.conf"},
      {"aaa", "aa", "b", "ba"},
      {"aa", "a", "aa", "aaaa"}, // the search goes on behind the replacement
      {"abab", "ab", "", ""},
      {"abc", "x", "y", "abc"},
      {"abc", "B", "y", "abc"},
      {"abc", "", "y", "abc"}};

  for (const auto& [prefix, name, value, expected] : cases) {
    SCOPED_TRACE(std::string(prefix) + ' ' + name);
    Path_Conf path(prefix, false, nullptr, 0);
    path.fix(name, value);
    EXPECT_EQ(expected, path.str());
  }
}

TEST(path_conf, can_be_appended_to_and_fixed_in_any_order)
{
  Path_Conf path("p", false, "%n", 0);
  path.fix("%n", "a");
  path.append("%n");
  path.fix("%n", "b");

  EXPECT_EQ("p/a/b", path.str());
}

TEST(path_conf, returns_its_text_writable_read_only_or_moved_as_the_object_is)
{
  Path_Conf path("p", false, nullptr, 0);
  const Path_Conf& read_only = path;

  static_assert(std::is_same<decltype(path.str()), std::string&>::value);
  static_assert(std::is_same<decltype(read_only.str()), const std::string&>::value);
  static_assert(std::is_same<decltype(std::move(path).str()), std::string>::value);

  path.str() += "/changed";
  EXPECT_EQ("p/changed", read_only.str());
  EXPECT_EQ(&path.str(), &read_only.str());
  EXPECT_EQ("q", Path_Conf("q", false, nullptr, 0).str());
  EXPECT_EQ("p/changed", std::move(path).str());
}

TEST(path_conf, copies_its_text)
{
  Path_Conf path("p", false, nullptr, 0);
  Path_Conf copy(path);
  copy.append("a");
  EXPECT_EQ("p", path.str());
  EXPECT_EQ("p/a", copy.str());

  path = copy;
  copy.append("b");
  EXPECT_EQ("p/a", path.str());
  EXPECT_FALSE(std::is_polymorphic<Path_Conf>::value);
}

TEST(path_conf, keeps_its_text_in_one_protected_member)
{
  struct Derived : Path_Conf
  {
    Derived() : Path_Conf("p", false, nullptr, 0) {}
    std::string& text() { return prefix_; }
  };

  Derived derived;
  EXPECT_EQ(&derived.str(), &derived.text());
}
