#include "scrt/environ.h"

#include "tests/support/log_capture.h"
#include "tests/support/logged.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

// These stand in for functions of the C library in environ.cpp. Each of them fails when the test says so.
static std::atomic<bool> lock_fails;
static thread_local bool growth_fails;

// Not instrumented, because a thread of ThreadSanitizer itself reallocates before the sanitizer knows the thread.
#define NOT_INSTRUMENTED __attribute__((no_sanitize_thread))

template <typename F>
NOT_INSTRUMENTED static F* next(const char* name)
{
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

extern "C" int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
  static auto* const real = next<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
  return lock_fails ? EAGAIN : real(lock);
}

extern "C" int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
  static auto* const real = next<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
  return lock_fails ? EDEADLK : real(lock);
}

extern "C" NOT_INSTRUMENTED void* realloc(void* p, std::size_t size) noexcept
{
  static auto* const real = next<void*(void*, std::size_t)>("realloc");
  if (growth_fails && !p && size > 4096) { // only a text on its way to the heap grows from nothing
    errno = ENOMEM;
    return nullptr;
  }
  return real(p, size);
}

// A static object of another unit, which is constructed before main runs and destroyed after it.
struct Early_User
{
  Early_User() : works(set_env("ENVIRON_TEST_EARLY", "x") && append_env("ENVIRON_TEST_EARLY", "y")) {}

  ~Early_User()
  {
    if (get_env_r("ENVIRON_TEST_EARLY") != "x:y")
      _exit(100);
  }

  bool works;
};

static const Early_User early_user;

static const char* value_of(const char* name)
{
  const char* const value = std::getenv(name);
  return value ? value : "(unset)";
}

TEST(get_env_r, copies_the_value)
{
  setenv("X", "old", 1);

  const std::string value = get_env_r("X");
  setenv("X", "new", 1);

  EXPECT_EQ("old", value);
}

TEST(get_env_r, answers_empty_for_an_empty_and_for_an_unset_variable)
{
  setenv("X", "", 1);
  unsetenv("Y");
  const Log_Capture capture;

  EXPECT_EQ("", get_env_r("X"));
  EXPECT_EQ("", get_env_r("Y"));
  EXPECT_TRUE(capture.records().empty());
}

TEST(get_env_r, copies_a_value_of_any_length)
{
  const std::string text(100000, 'v');
  setenv("X", text.c_str(), 1);

  EXPECT_EQ(text, get_env_r("X"));
}

TEST(set_env, sets_and_overwrites_a_variable_and_answers_true)
{
  unsetenv("X");

  EXPECT_TRUE(set_env("X", "one"));
  EXPECT_STREQ("one", value_of("X"));
  EXPECT_TRUE(set_env("X", "two"));
  EXPECT_STREQ("two", value_of("X"));
}

TEST(set_env, sets_the_empty_string_and_answers_true)
{
  setenv("X", "old", 1);

  EXPECT_TRUE(set_env("X", ""));
  EXPECT_STREQ("", value_of("X"));
}

TEST(set_env, copies_the_text)
{
  std::string text("mine");

  ASSERT_TRUE(set_env("X", text.c_str()));
  text = "gone";

  EXPECT_STREQ("mine", value_of("X"));
}

TEST(set_env, answers_false_when_it_removed_the_variable)
{
  setenv("X", "old", 1);

  EXPECT_FALSE(set_env("X", nullptr));
  EXPECT_STREQ("(unset)", value_of("X"));
  EXPECT_FALSE(set_env("X", nullptr)) << "there is nothing left to remove, which succeeds too";
}

TEST(set_env, answers_true_when_it_cannot_remove_a_variable_and_false_when_it_cannot_set_one)
{
  const Log_Capture capture;

  errno = 0;
  EXPECT_FALSE(set_env("X=Y", "value"));
  EXPECT_EQ(EINVAL, errno);

  errno = 0;
  EXPECT_TRUE(set_env("X=Y", nullptr));
  EXPECT_EQ(EINVAL, errno);

  EXPECT_TRUE(capture.records().empty());
}

TEST(append_env, adds_behind_the_value_with_a_colon)
{
  setenv("X", "/a", 1);

  EXPECT_TRUE(append_env("X", "/x"));
  EXPECT_STREQ("/a:/x", value_of("X"));
}

TEST(append_env, adds_the_same_text_twice)
{
  setenv("X", "/a", 1);

  EXPECT_TRUE(append_env("X", "/x"));
  EXPECT_TRUE(append_env("X", "/x"));
  EXPECT_STREQ("/a:/x:/x", value_of("X"));
}

TEST(prepend_env, adds_in_front_of_the_value_with_a_colon)
{
  setenv("X", "/a", 1);

  EXPECT_TRUE(prepend_env("X", "/x"));
  EXPECT_STREQ("/x:/a", value_of("X"));
}

using Setter = bool(const char*, const char*);

static const std::pair<const char*, Setter*> adders[] = {{"append_env", append_env}, {"prepend_env", prepend_env}};

TEST(append_and_prepend_env, set_the_text_alone_when_there_is_no_value)
{
  for (const auto& [adder, add] : adders) {
    SCOPED_TRACE(adder);
    setenv("EMPTY", "", 1);
    unsetenv("UNSET");

    EXPECT_TRUE(add("EMPTY", "/x"));
    EXPECT_TRUE(add("UNSET", "/x"));

    EXPECT_STREQ("/x", value_of("EMPTY"));
    EXPECT_STREQ("/x", value_of("UNSET"));
  }
}

TEST(append_and_prepend_env, put_a_colon_whatever_is_there_already)
{
  setenv("X", "/a:", 1);
  EXPECT_TRUE(append_env("X", ":/x"));
  EXPECT_STREQ("/a:::/x", value_of("X"));

  setenv("X", ":/a", 1);
  EXPECT_TRUE(prepend_env("X", "/x:"));
  EXPECT_STREQ("/x:::/a", value_of("X"));
}

TEST(append_and_prepend_env, add_an_empty_text_with_its_colon)
{
  setenv("X", "/a", 1);

  EXPECT_TRUE(append_env("X", ""));
  EXPECT_STREQ("/a:", value_of("X"));
  EXPECT_TRUE(prepend_env("X", ""));
  EXPECT_STREQ(":/a:", value_of("X"));
}

TEST(append_and_prepend_env, join_values_of_more_than_4096_characters_whole)
{
  for (const unsigned length : {2047u, 2048u, 4094u, 4095u, 4096u, 100000u}) {
    SCOPED_TRACE(length);
    const std::string old(length, 'o');
    const std::string text(length, 't');

    setenv("X", old.c_str(), 1);
    EXPECT_TRUE(append_env("X", text.c_str()));
    EXPECT_EQ(old + ":" + text, value_of("X"));

    setenv("X", old.c_str(), 1);
    EXPECT_TRUE(prepend_env("X", text.c_str()));
    EXPECT_EQ(text + ":" + old, value_of("X"));
  }
}

TEST(append_and_prepend_env, set_what_fits_when_there_is_no_memory_for_the_whole)
{
  const std::string old(4000, 'o');
  const std::string text(4000, 't');
  setenv("X", old.c_str(), 1);

  growth_fails = true;
  const bool result = append_env("X", text.c_str());
  growth_fails = false;

  EXPECT_TRUE(result);
  EXPECT_EQ((old + ":" + text).substr(0, 4095), value_of("X"));
}

TEST(append_and_prepend_env, answer_as_set_env_for_a_name_that_cannot_be_set)
{
  for (const auto& [adder, add] : adders) {
    SCOPED_TRACE(adder);
    EXPECT_FALSE(add("X=Y", "value"));
  }
}

TEST(append_and_prepend_env, remove_a_variable_without_a_value_for_a_null_text_and_answer_false)
{
  for (const auto& [adder, add] : adders) {
    SCOPED_TRACE(adder);
    setenv("X", "", 1);

    EXPECT_FALSE(add("X", nullptr));
    EXPECT_STREQ("(unset)", value_of("X"));
  }
}

TEST(environ, logs_one_emergency_record_with_a_line_of_its_own_for_a_null_or_empty_name)
{
  const std::pair<const char*, std::function<void(const char*)>> functions[] = {
      {"get_env_r", [](const char* name) { EXPECT_EQ("", get_env_r(name)); }},
      {"set_env", [](const char* name) { EXPECT_FALSE(set_env(name, "value")); }},
      {"append_env", [](const char* name) { EXPECT_FALSE(append_env(name, "value")); }},
      {"prepend_env", [](const char* name) { EXPECT_FALSE(prepend_env(name, "value")); }}};

  std::set<int> lines;
  for (const auto& [function, call] : functions)
    for (const char* const name : {static_cast<const char*>(nullptr), ""}) {
      SCOPED_TRACE(std::string(function) + (name ? " of an empty name" : " of a null name"));
      const Log_Capture capture;

      errno = ENOTTY;
      call(name);

      ASSERT_EQ(1u, capture.records().size());
      const Record& record = capture.records()[0];
      EXPECT_EQ(ENOTTY, record.error);
      const std::string head =
          "Unexpected error in scrt/environ.cpp:" + std::to_string(record.line) + ", name is NULL or \"\":\n";
      EXPECT_THAT(with_file(record), BeginsLike(emergency_failed(head).in("scrt/environ.cpp")));
      EXPECT_GT(record.text.size(), head.size() + 2) << "there is no back trace";
      EXPECT_EQ('\n', record.text.back());
      lines.insert(record.line);
      EXPECT_EQ(record.line, *lines.rbegin()) << "the line belongs to a function further up";
    }

  EXPECT_EQ(4u, lines.size());
}

TEST(environ, removes_nothing_for_a_bad_name)
{
  const Log_Capture capture;

  EXPECT_FALSE(set_env("", nullptr));
  EXPECT_FALSE(set_env(nullptr, nullptr));
  EXPECT_EQ(2u, capture.records().size());
}

TEST(environ, fails_without_a_record_when_the_lock_cannot_be_taken)
{
  setenv("X", "/a", 1);
  const Log_Capture capture;

  lock_fails = true;
  const std::string value = get_env_r("X");
  const bool set = set_env("X", "/x");
  const bool removed = set_env("X", nullptr);
  const bool appended = append_env("X", "/x");
  const bool prepended = prepend_env("X", "/x");
  lock_fails = false;

  EXPECT_EQ("", value);
  EXPECT_FALSE(set);
  EXPECT_FALSE(removed);
  EXPECT_FALSE(appended);
  EXPECT_FALSE(prepended);
  EXPECT_STREQ("/a", value_of("X"));
  EXPECT_TRUE(capture.records().empty());
}

TEST(environ, releases_the_lock_after_every_call)
{
  for (int round = 0; round < 3; ++round) {
    set_env("X", "/a");
    append_env("X", "/x");
    prepend_env("X", "/x");
    set_env("X=Y", "fails");
  }
  std::string value;
  std::thread([&value] { value = get_env_r("X"); }).join();

  EXPECT_EQ("/x:/a:/x", value);
}

TEST(environ, serves_constructors_and_destructors_of_static_objects)
{
  EXPECT_TRUE(early_user.works);
  EXPECT_STREQ("x:y", value_of("ENVIRON_TEST_EARLY"));

  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "") << "the destructor read another value";
}

TEST(environ, loses_no_change_and_tears_no_value_with_readers_and_writers_at_once)
{
  enum { WRITERS = 4, CHANGES = 250, READERS = 4, READS = 2000 };
  const std::string text(40, 'x');
  unsetenv("X");

  std::atomic<unsigned> torn(0);
  std::vector<std::thread> threads;
  for (int writer = 0; writer < WRITERS; ++writer)
    threads.emplace_back([&, writer] {
      for (int i = 0; i < CHANGES; ++i) {
        writer % 2 == 0 ? append_env("X", text.c_str()) : prepend_env("X", text.c_str());
        set_env(("ENVIRON_TEST_" + std::to_string(writer * CHANGES + i)).c_str(), "moves the whole environment");
      }
    });
  for (int reader = 0; reader < READERS; ++reader)
    threads.emplace_back([&] {
      // The lock prefers readers, so readers that waited for the end of the writers could hold them up for ever.
      for (int i = 0; i < READS; ++i) {
        const std::string value = get_env_r("X");
        if (!value.empty() && (value.size() + 1) % (text.size() + 1) != 0)
          ++torn;
      }
    });
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_EQ(0u, torn);
  EXPECT_EQ(WRITERS * CHANGES * (text.size() + 1) - 1, get_env_r("X").size());
}
