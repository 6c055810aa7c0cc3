#include "scrt/mkdir_p.h"

#include "scrt/mkdir_p_t.h"
#include "tests/support/child.h"
#include "tests/support/failing_strdup.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using Paths = std::vector<std::string>;

// The result of a call, with the paths that its callback got.
struct Outcome
{
  int value;
  int error; // errno after a failure, else 0
  Paths made;
};

static bool operator==(const Outcome& l, const Outcome& r)
{
  return l.value == r.value && l.error == r.error && l.made == r.made;
}

static std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
  out << outcome.value << " errno=" << outcome.error;
  for (const std::string& path : outcome.made)
    out << ' ' << path;
  return out;
}

template <typename T>
static std::basic_string<T> convert(const std::string& text)
{
  return std::basic_string<T>(text.begin(), text.end());
}

static constexpr std::size_t NEVER = static_cast<std::size_t>(-1);

// Calls the overload for `T`. The callback says no at its `stop_after`-th call.
template <typename T>
static Outcome make(const std::string& path, unsigned mode, std::size_t stop_after)
{
  Paths made;
  errno = 0;
  const int value = mkdir_p(convert<T>(path).c_str(), mode, [&](const T* dir) {
    made.emplace_back(dir, dir + std::char_traits<T>::length(dir));
    errno = EPERM; // a callback may change errno
    return made.size() != stop_after;
  });

  return {value, value == 0 ? 0 : errno, made};
}

struct Overload
{
  const char* name;
  Outcome (*make)(const std::string& path, unsigned mode, std::size_t stop_after);
};

static const Overload overloads[] = {{"narrow", make<char>}, {"wide", make<wchar_t>}};

using Make = std::function<Outcome(const std::string& path, unsigned mode, std::size_t stop_after)>;

// Runs `body` for each overload, with a new directory as working directory.
static void with_each_overload(const std::function<void(const Make& make)>& body)
{
  for (const Overload& overload : overloads) {
    SCOPED_TRACE(overload.name);
    const Temp_Dir dir;
    ASSERT_EQ(0, chdir(dir.path().c_str()));
    body(overload.make);
    ASSERT_EQ(0, chdir("/"));
  }
}

static bool is_directory(const std::string& path)
{
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

static bool exists(const std::string& path)
{
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

static void make_file(const std::string& path)
{
  FILE* const fp = fopen(path.c_str(), "w");
  ASSERT_NE(nullptr, fp) << path;
  fclose(fp);
}

static mode_t mode_of(const std::string& path)
{
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Sets the umask as long as the object lives.
class Umask
{
public:
  explicit Umask(mode_t mask) : previous_(umask(mask)) {}
  ~Umask() { umask(previous_); }

private:
  const mode_t previous_;
};

TEST(mkdir_p, creates_missing_parents_outermost_first)
{
  with_each_overload([](const Make& make) {
    EXPECT_EQ((Outcome{0, 0, {"a", "a/b", "a/b/c"}}), make("a/b/c", 0755, NEVER));
    EXPECT_TRUE(is_directory("a/b/c"));
  });
}

TEST(mkdir_p, keeps_separators_as_given)
{
  with_each_overload([](const Make& make) {
    EXPECT_EQ((Outcome{0, 0, {"a", "a//b", "a//b///c"}}), make("a//b///c", 0755, NEVER));
    EXPECT_TRUE(is_directory("a/b/c"));
  });
}

TEST(mkdir_p, takes_a_path_as_absolute_after_leading_separators)
{
  for (const Overload& overload : overloads) {
    SCOPED_TRACE(overload.name);
    const Temp_Dir dir;
    const std::string path = "//" + dir.path();

    EXPECT_EQ((Outcome{0, 0, {path + "/a", path + "/a/b"}}), overload.make(path + "/a/b", 0755, NEVER));
    EXPECT_TRUE(is_directory(dir / "a/b"));
  }
}

TEST(mkdir_p, ignores_trailing_separators)
{
  with_each_overload([](const Make& make) {
    EXPECT_EQ((Outcome{0, 0, {"a", "a/b"}}), make("a/b/", 0755, NEVER));
    EXPECT_EQ((Outcome{0, 0, {"c"}}), make("c///", 0755, NEVER));
    EXPECT_EQ((Outcome{0, 0, {}}), make("/", 0755, NEVER));
    EXPECT_EQ((Outcome{0, 0, {}}), make("//", 0755, NEVER));
  });
}

TEST(mkdir_p, looks_at_the_whole_path_once_more_after_a_trailing_separator)
{
  with_each_overload([](const Make&) {
    for (const std::string path : {"a/b/", "a/b///"}) {
      Paths made;
      const int value = mkdir_p(path.c_str(), 0755, [&](const char* dir) {
        made.push_back(dir);
        return made.back() != "a/b" || rmdir(dir) == 0;
      });

      EXPECT_EQ(0, value);
      EXPECT_EQ((Paths{"a", "a/b", path}), made);
      EXPECT_TRUE(is_directory("a/b"));
      rmdir("a/b");
      rmdir("a");
    }
  });
}

TEST(mkdir_p, accepts_dots)
{
  with_each_overload([](const Make& make) {
    EXPECT_EQ((Outcome{0, 0, {"./a", "./a/../b"}}), make("./a/../b", 0755, NEVER));
    EXPECT_TRUE(is_directory("b"));
  });
}

TEST(mkdir_p, creates_only_what_is_missing)
{
  with_each_overload([](const Make& make) {
    make("a/b", 0700, NEVER);

    EXPECT_EQ((Outcome{0, 0, {}}), make("a/b", 0755, NEVER));
    EXPECT_EQ(0700u, mode_of("a/b"));
    EXPECT_EQ((Outcome{0, 0, {"a/b/c"}}), make("a/b/c", 0755, NEVER));
  });
}

TEST(mkdir_p, refuses_a_null_or_empty_path)
{
  with_each_overload([](const Make& make) { EXPECT_EQ((Outcome{-1, EINVAL, {}}), make("", 0755, NEVER)); });

  errno = 0;
  EXPECT_EQ(-1, mkdir_p(static_cast<const char*>(nullptr), 0755, nullptr));
  EXPECT_EQ(EINVAL, errno);
  errno = 0;
  EXPECT_EQ(-1, mkdir_p(static_cast<const wchar_t*>(nullptr), 0755, nullptr));
  EXPECT_EQ(EINVAL, errno);
}

TEST(mkdir_p, needs_no_callback)
{
  with_each_overload([](const Make&) {
    EXPECT_EQ(0, mkdir_p("a/b", 0755, nullptr));
    EXPECT_EQ(0, mkdir_p(L"c/d", 0755, std::function<bool(const wchar_t*)>()));
    EXPECT_TRUE(is_directory("a/b"));
    EXPECT_TRUE(is_directory("c/d"));
  });
}

TEST(mkdir_p, stops_without_an_error_when_the_callback_says_no)
{
  with_each_overload([](const Make& make) {
    EXPECT_EQ((Outcome{0, 0, {"a"}}), make("a/b/c", 0755, 1));
    EXPECT_TRUE(is_directory("a"));
    EXPECT_FALSE(exists("a/b"));

    EXPECT_EQ((Outcome{0, 0, {"a/b", "a/b/c"}}), make("a/b/c", 0755, 2)); // the callback says no at the last directory
    EXPECT_TRUE(is_directory("a/b/c"));
  });
}

TEST(mkdir_p, does_not_report_what_the_callback_made)
{
  with_each_overload([](const Make&) {
    Paths made;
    const int value = mkdir_p("a/b/c", 0755, [&](const char* dir) {
      made.push_back(dir);
      return mkdir("a/b", 0755) == 0 || errno == EEXIST;
    });

    EXPECT_EQ(0, value);
    EXPECT_EQ((Paths{"a", "a/b/c"}), made);
  });
}

TEST(mkdir_p, passes_on_what_the_callback_throws)
{
  with_each_overload([](const Make&) {
    EXPECT_THROW(mkdir_p("a/b", 0755, [](const char*) -> bool { throw std::runtime_error("no"); }), std::runtime_error);
    EXPECT_TRUE(is_directory("a"));
    EXPECT_FALSE(exists("a/b"));
  });
}

TEST(mkdir_p, copies_its_callback)
{
  with_each_overload([](const Make&) {
    unsigned count = 0;
    const std::function<bool(const char*)> cb = [&count, calls = 0u](const char*) mutable {
      count = ++calls;
      return true;
    };

    mkdir_p("a/b", 0755, cb);
    EXPECT_EQ(2u, count);
    mkdir_p("c", 0755, cb);
    EXPECT_EQ(1u, count); // the copies of the callback share the counter
  });
}

TEST(mkdir_p, refuses_a_file_in_the_way)
{
  with_each_overload([](const Make& make) {
    make_file("x");
    EXPECT_EQ((Outcome{-1, ENOTDIR, {}}), make("x/y", 0755, NEVER));
    EXPECT_EQ((Outcome{-1, ENOTDIR, {}}), make("x", 0755, NEVER));
    EXPECT_EQ((Outcome{-1, ENOTDIR, {}}), make("/dev/null/y", 0755, NEVER));

    // The component is looked at without the separator behind it.
    EXPECT_EQ((Outcome{-1, ENOTDIR, {}}), make("x/", 0755, NEVER));
  });
}

TEST(mkdir_p, applies_the_umask_to_each_directory)
{
  with_each_overload([](const Make& make) {
    const Umask masked(027);
    make("a/b", 0777, NEVER);
    EXPECT_EQ(0750u, mode_of("a"));
    EXPECT_EQ(0750u, mode_of("a/b"));

    const Umask unmasked(0);
    make("c/d", 01777, NEVER);
    EXPECT_EQ(01777u, mode_of("c"));
    EXPECT_EQ(01777u, mode_of("c/d"));
  });
}

static std::string text_of(const Outcome& outcome)
{
  std::ostringstream text;
  text << outcome;
  return text.str();
}

TEST(mkdir_p, reports_a_parent_that_may_not_be_written_and_keeps_what_it_made)
{
  with_each_overload([](const Make& make) {
    mkdir("open", 0777);
    chmod("open", 0777);
    // Without the owner's write permission in the mode, the level below cannot be made.
    Child half([&] { return text_of(make("open/a/b", 0500, NEVER)); }, true);
    EXPECT_EQ(text_of({-1, EACCES, {"open/a"}}), half.result());
    EXPECT_EQ(0500u, mode_of("open/a"));
    chmod("open/a", 0700);

    mkdir("locked", 0755);
    chmod("locked", 0555);
    Child denied([&] { return text_of(make("locked/a/b", 0755, NEVER)); }, true);
    EXPECT_EQ(text_of({-1, EACCES, {}}), denied.result());
    chmod("locked", 0755);
  });
}

TEST(mkdir_p, tries_to_create_a_component_that_it_cannot_examine)
{
  with_each_overload([](const Make& make) {
    // Looking at a link to itself fails with ELOOP. Only the attempt to make the directory shows that the entry exists,
    // which then counts as a directory that another process made.
    ASSERT_EQ(0, symlink("loop", "loop"));
    EXPECT_EQ((Outcome{0, 0, {}}), make("loop", 0755, NEVER));
    EXPECT_EQ((Outcome{-1, ELOOP, {}}), make("loop/a", 0755, NEVER));

    mkdir("hidden", 0700);
    chmod("hidden", 0);
    Child denied([&] { return text_of(make("hidden/a", 0755, NEVER)); }, true);
    EXPECT_EQ(text_of({-1, EACCES, {}}), denied.result());
    chmod("hidden", 0700);
  });
}

TEST(mkdir_p, follows_symbolic_links)
{
  with_each_overload([](const Make& make) {
    mkdir("real", 0755);
    ASSERT_EQ(0, symlink("real", "link"));
    EXPECT_EQ((Outcome{0, 0, {"link/a"}}), make("link/a", 0755, NEVER));
    EXPECT_TRUE(is_directory("real/a"));
  });
}

TEST(mkdir_p, takes_a_link_that_leads_nowhere_for_a_directory)
{
  with_each_overload([](const Make& make) {
    ASSERT_EQ(0, symlink("nowhere", "link"));
    EXPECT_EQ((Outcome{0, 0, {}}), make("link", 0755, NEVER));
    EXPECT_EQ((Outcome{-1, ENOENT, {}}), make("link/a", 0755, NEVER));
    EXPECT_FALSE(exists("nowhere"));
  });
}

TEST(mkdir_p, reports_a_component_that_is_too_long_and_keeps_what_it_made)
{
  with_each_overload([](const Make& make) {
    const std::string longest(NAME_MAX, 'n');
    EXPECT_EQ((Outcome{0, 0, {"a", "a/" + longest}}), make("a/" + longest, 0755, NEVER));
    EXPECT_EQ((Outcome{-1, ENAMETOOLONG, {"b"}}), make("b/n" + longest, 0755, NEVER));
    EXPECT_TRUE(is_directory("b"));
  });
}

// A relative path of `length` characters, made of components of 200 and a last one of what is left.
static std::string make_path(std::size_t length)
{
  std::string path;
  while (length - path.size() > 200 + 1 + 1)
    path += std::string(200, 'p') + '/';
  return path + std::string(length - path.size(), 'q');
}

TEST(mkdir_p, accepts_the_longest_path_that_the_system_allows)
{
  with_each_overload([](const Make& make) {
    const std::string longest = make_path(PATH_MAX - 1); // and the terminating NUL
    const Outcome outcome = make(longest, 0755, NEVER);
    EXPECT_EQ(0, outcome.value);
    EXPECT_EQ(static_cast<std::size_t>(std::count(longest.begin(), longest.end(), '/')) + 1, outcome.made.size());
    EXPECT_EQ(longest, outcome.made.back());
    EXPECT_TRUE(is_directory(longest));

    EXPECT_EQ((Outcome{-1, ENAMETOOLONG, {}}), make(longest + 'q', 0755, NEVER));
  });
}

TEST(mkdir_p, makes_a_thousand_levels)
{
  with_each_overload([](const Make& make) {
    std::string path;
    for (unsigned level = 0; level < 1000; ++level)
      path += "d/";
    const Outcome outcome = make(path, 0755, NEVER);

    EXPECT_EQ(0, outcome.value);
    EXPECT_EQ(1000u, outcome.made.size());
    EXPECT_TRUE(is_directory(path));

    // The tree is removed from below: removing it from above would take a descriptor for each level.
    for (; !path.empty(); path.resize(path.size() - 2))
      ASSERT_EQ(0, rmdir(path.c_str()));
  });
}

TEST(mkdir_p, works_in_a_directory_deeper_than_a_path_can_be_long)
{
  with_each_overload([](const Make& make) {
    std::string path;
    for (unsigned level = 0; level < 250; ++level)
      path += "directory/"; // 2500 characters, four times
    for (unsigned stage = 0; stage < 4; ++stage) {
      EXPECT_EQ(250u, make(path, 0755, NEVER).made.size());
      ASSERT_EQ(0, chdir(path.c_str()));
    }

    for (unsigned level = 0; level < 1000; ++level) {
      ASSERT_EQ(0, chdir(".."));
      ASSERT_EQ(0, rmdir("directory"));
    }
  });
}

TEST(mkdir_p, reports_that_memory_ran_out)
{
  with_each_overload([](const Make& make) {
    for (const int error : {ENOMEM, EAGAIN}) { // any errno of the allocation
      const Failing_Strdup failing(error);
      EXPECT_EQ((Outcome{-1, error, {}}), make("a", 0755, NEVER));
    }
    EXPECT_FALSE(exists("a"));
  });
}

TEST(mkdir_p, logs_nothing)
{
  with_each_overload([](const Make& make) {
    make_file("x");
    const Log_Capture log;
    make("", 0755, NEVER);
    make("x/y", 0755, NEVER);
    make(std::string(NAME_MAX + 1, 'n'), 0755, NEVER);
    make("a/b", 0755, 1);
    make("a/b", 0755, NEVER);

    EXPECT_TRUE(log.records().empty());
  });
}

// The prefixes of a path of `levels` levels, outermost first.
static Paths prefixes(unsigned levels)
{
  Paths paths{"l0"};
  for (unsigned level = 1; level < levels; ++level)
    paths.push_back(paths.back() + "/l" + std::to_string(level));
  return paths;
}

static constexpr unsigned RACE_LEVELS = 30;
static constexpr unsigned RACE_ROUNDS = 10;
static constexpr unsigned RACERS = 8;

TEST(mkdir_p, lets_threads_create_the_same_tree_at_once)
{
  with_each_overload([](const Make& make) {
    for (unsigned round = 0; round < RACE_ROUNDS; ++round) {
      const std::string root = "round" + std::to_string(round) + '/';
      mkdir(root.c_str(), 0755);
      const Paths all = prefixes(RACE_LEVELS);

      std::atomic<unsigned> ready{0};
      std::vector<Outcome> outcomes(RACERS);
      std::vector<std::thread> threads;
      for (Outcome& outcome : outcomes)
        threads.emplace_back([&] {
          ++ready;
          while (ready < RACERS)
            std::this_thread::yield();
          outcome = make(root + all.back(), 0755, NEVER);
        });
      for (std::thread& thread : threads)
        thread.join();

      Paths made;
      for (const Outcome& outcome : outcomes) {
        EXPECT_EQ(0, outcome.value) << outcome;
        for (const std::string& path : outcome.made)
          made.push_back(path.substr(root.size()));
      }
      std::sort(made.begin(), made.end());
      EXPECT_EQ(all, made); // each directory was reported to exactly one of the callers
      EXPECT_TRUE(is_directory(root + all.back()));
    }
  });
}

TEST(mkdir_p, lets_processes_create_the_same_tree_at_once)
{
  with_each_overload([](const Make& make) {
    for (unsigned round = 0; round < RACE_ROUNDS; ++round) {
      const std::string path = "round" + std::to_string(round) + '/' + prefixes(RACE_LEVELS).back();
      std::vector<std::unique_ptr<Child>> children;
      for (unsigned i = 0; i < RACERS; ++i)
        children.push_back(std::make_unique<Child>([&] {
          const Outcome outcome = make(path, 0755, NEVER);
          return std::to_string(outcome.value) + ' ' + std::to_string(outcome.made.size());
        }));

      std::size_t made = 0;
      for (const auto& child : children) {
        const std::string result = child->result();
        ASSERT_EQ("0 ", result.substr(0, 2)) << result;
        made += std::stoul(result.substr(2));
      }
      EXPECT_EQ(RACE_LEVELS + 1, made);
      EXPECT_TRUE(is_directory(path));
    }
  });
}

TEST(mkdir_p_t, separates_components_by_any_character)
{
  with_each_overload([](const Make&) {
    // The path goes to the system as it is, where this separator means nothing.
    Paths made;
    EXPECT_EQ(0, mkdir_p_t<char>("a:b::c", 0755, ':', [&](const char* dir) {
                made.push_back(dir);
                return true;
              }));
    EXPECT_EQ((Paths{"a", "a:b", "a:b::c"}), made);
    EXPECT_TRUE(is_directory("a:b::c"));
  });
}

// The result of a call.
struct Found
{
  std::string dirname; // "(null)" for a null pointer
  int error;
  bool has_status; // whether the status is that of the directory returned
};

static bool operator==(const Found& l, const Found& r)
{
  return l.dirname == r.dirname && l.error == r.error && l.has_status == r.has_status;
}

static std::ostream& operator<<(std::ostream& out, const Found& found)
{
  return out << found.dirname << " errno=" << found.error << (found.has_status ? " with status" : "");
}

static Found find(const std::string& path)
{
  struct stat st = {};
  errno = EPERM;
  const std::unique_ptr<char, Free_Delete> result(longest_exist_dirname(path.c_str(), &st));
  const int error = errno;
  if (!result)
    return {"(null)", error, false};

  struct stat expected;
  const bool same = stat(result.get(), &expected) == 0 && st.st_ino == expected.st_ino &&
                    st.st_dev == expected.st_dev && st.st_mode == expected.st_mode;
  return {result.get(), error, same};
}

static Found nothing(int error)
{
  return {"(null)", error, false};
}

TEST(longest_exist_dirname, finds_the_part_that_exists)
{
  const Temp_Dir dir;
  ASSERT_EQ(0, chdir(dir.path().c_str()));
  ASSERT_EQ(0, mkdir_p("a/b", 0755, nullptr));
  make_file("file");
  make_file("a/file");
  ASSERT_EQ(0, symlink("a", "link"));
  ASSERT_EQ(0, symlink("nowhere", "dangling"));
  ASSERT_EQ(0, symlink("loop", "loop"));
  ASSERT_EQ(0, symlink("loop", "a/loop"));

  const std::tuple<std::string, Found> cases[] = {{"/nonexistent/dir", {"/", 0, true}},
                                                  {"//nonexistent/dir", {"/", 0, true}},
                                                  {"nonexistent/dir", nothing(ENOENT)},
                                                  {"nonexistent", nothing(ENOENT)},
                                                  {"", nothing(ENOENT)},
                                                  {"/tmp/x-that-is-missing/y", {"/tmp", 0, true}},
                                                  {"/", {"/", 0, true}},
                                                  {"//", {"//", 0, true}},
                                                  {".", {".", 0, true}},
                                                  {"a", {"a", 0, true}},
                                                  {"a/b", {"a/b", 0, true}},
                                                  {"a/b/", {"a/b/", 0, true}},
                                                  {"a//b///c//d", {"a//b", 0, true}},
                                                  {"a/x/b", {"a", 0, true}},
                                                  {dir / "a/b/c", {dir / "a/b", 0, true}},
                                                  {"link/b/c", {"link/b", 0, true}},
                                                  {"dangling/a", nothing(ENOENT)},
                                                  {"a/../dangling", {"a/..", 0, true}},
                                                  {"file", nothing(ENOTDIR)},
                                                  {"file/a", nothing(ENOTDIR)},
                                                  {"a/file", nothing(ENOTDIR)},
                                                  {"a/file/b", nothing(ENOTDIR)},
                                                  {"loop/a", nothing(ELOOP)},
                                                  {"a/loop/b", nothing(ELOOP)},
                                                  {dir / "loop", nothing(ELOOP)},
                                                  {"a/" + std::string(NAME_MAX + 1, 'n'), nothing(ENAMETOOLONG)}};

  for (const auto& [path, expected] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(expected, find(path));
  }
  ASSERT_EQ(0, chdir("/"));
}

TEST(longest_exist_dirname, gives_the_whole_status_of_the_last_directory)
{
  const Temp_Dir dir;
  mkdir((dir / "a").c_str(), 0755);
  make_file(dir / "a/file");
  struct stat expected = {};
  ASSERT_EQ(0, stat((dir / "a").c_str(), &expected));

  for (const std::string& path : {dir / "a", dir / "a/missing", dir / "a/file"}) { // the status is not that of a file
    SCOPED_TRACE(path);
    struct stat st = {};
    const std::unique_ptr<char, Free_Delete> result(longest_exist_dirname(path.c_str(), &st));

    EXPECT_EQ(expected.st_ino, st.st_ino);
    EXPECT_EQ(expected.st_mode, st.st_mode);
    EXPECT_EQ(expected.st_nlink, st.st_nlink);
    EXPECT_EQ(expected.st_uid, st.st_uid);
    EXPECT_EQ(expected.st_gid, st.st_gid);
    EXPECT_EQ(expected.st_size, st.st_size);
    EXPECT_EQ(expected.st_mtim.tv_sec, st.st_mtim.tv_sec);
    EXPECT_EQ(expected.st_mtim.tv_nsec, st.st_mtim.tv_nsec);
  }
}

TEST(longest_exist_dirname, logs_nothing)
{
  const Temp_Dir dir;
  make_file(dir / "file");
  const Log_Capture log;
  for (const std::string& path : {dir / "file/a", dir / "missing", std::string("missing"), std::string()})
    find(path);

  EXPECT_TRUE(log.records().empty());
}

TEST(longest_exist_dirname, reports_a_directory_that_may_not_be_searched)
{
  const Temp_Dir dir;
  mkdir((dir / "hidden").c_str(), 0);

  Child denied(
      [&] {
        const Found found = find(dir / "hidden/a");
        return found.dirname + ' ' + std::to_string(found.error);
      },
      true);
  EXPECT_EQ("(null) " + std::to_string(EACCES), denied.result());
  chmod((dir / "hidden").c_str(), 0700);
}

TEST(longest_exist_dirname, gives_an_empty_text_without_a_place_for_the_status)
{
  for (const char* const path : {"/tmp", "nonexistent", ""}) {
    SCOPED_TRACE(path);
    errno = EPERM;
    const std::unique_ptr<char, Free_Delete> result(longest_exist_dirname(path, nullptr));
    const int reported = errno;

    ASSERT_NE(nullptr, result);
    EXPECT_STREQ("", result.get());
    EXPECT_EQ(0, reported);
  }
}

TEST(longest_exist_dirname, gives_null_and_errno_0_without_memory)
{
  const Failing_Strdup failing(ENOMEM);
  struct stat st;
  for (struct stat* const status : {&st, static_cast<struct stat*>(nullptr)}) {
    errno = EPERM;
    EXPECT_EQ(nullptr, longest_exist_dirname("/tmp", status));
    EXPECT_EQ(0, errno);
  }
}

TEST(longest_exist_dirname, takes_a_path_of_any_length)
{
  const Temp_Dir dir;
  ASSERT_EQ(0, chdir(dir.path().c_str()));
  const std::string longest = make_path(PATH_MAX - 1);
  ASSERT_EQ(0, mkdir_p(longest.c_str(), 0755, nullptr));

  EXPECT_EQ((Found{longest, 0, true}), find(longest));
  EXPECT_EQ(nothing(ENAMETOOLONG), find(longest + "/x"));
  ASSERT_EQ(0, chdir("/"));
}
