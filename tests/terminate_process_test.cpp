#include "tests/support/starter_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Log_Priority.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include <signal.h>

using Words = std::vector<std::string>;

// The records of the program itself about its end.
static std::vector<Record> own_records(const Starter_Process& starter)
{
  std::vector<Record> records = starter.records();
  records.erase(
      std::remove_if(records.begin(), records.end(),
                     [](const Record& r) { return r.file != "starter/starter.cpp" || r.priority < LM_ALERT; }),
      records.end());
  return records;
}

// The record must begin like `beginning` and go on with a back trace.
static void expect_record(const Record& record, const Logged& beginning)
{
  EXPECT_THAT(without_file(record), BeginsLike(beginning));
  EXPECT_LT(beginning.text.size() + 10, record.text.size()) << "no back trace: " << record;
}

static const Words MAIN_THREAD;
static const Words POOL{"--reactor", "tp", "--threads", "2"};
static const std::string STD_TEXT = "Unhandled exception is caught, thrown by the service\n";
static const std::string OTHER_TEXT = "Unknown/unhandled exception is caught: \n";
static const std::string ABORT_TEXT = "Signal 6 (Aborted) caught in [starter], the back trace:\n";

TEST(terminate_process, records_an_uncaught_exception_and_ends_with_status_0)
{
  const std::tuple<const char*, Words, std::string> cases[] = {
      {"init std", MAIN_THREAD, STD_TEXT}, {"init std", POOL, STD_TEXT},     {"timer std", MAIN_THREAD, STD_TEXT},
      {"timer std", POOL, STD_TEXT},       {"init other", POOL, OTHER_TEXT}, {"timer other", MAIN_THREAD, OTHER_TEXT},
      {"timer other", POOL, OTHER_TEXT}};

  for (const auto& [service, options, text] : cases) {
    SCOPED_TRACE(std::string(service) + (options.empty() ? " in the main thread" : " with a pool"));
    Words args = options;
    args.insert(args.end(), {"-S", dynamic_directive("T", "thrower", "_make_Thrower", service)});
    Starter_Process starter(args, probed());

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    const std::vector<Record> records = own_records(starter);
    ASSERT_EQ(2u, records.size()) << starter.log();
    expect_record(records[0], emergency(text));
    expect_record(records[1], alert(ABORT_TEXT));
  }
}

// Without an exception the terminate handler has nothing to record: its attempt to rethrow calls it again, and it
// aborts.
TEST(terminate_process, records_only_the_abort_without_an_exception)
{
  for (const Words& options : {MAIN_THREAD, POOL}) {
    Words args = options;
    args.insert(args.end(), {"-S", dynamic_directive("T", "thrower", "_make_Thrower", "timer none")});
    Starter_Process starter(args, probed());

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    const std::vector<Record> records = own_records(starter);
    ASSERT_EQ(1u, records.size()) << starter.log();
    expect_record(records[0], alert(ABORT_TEXT));
  }
}

TEST(terminate_process, aborts_plainly_before_the_dispositions_are_in_force)
{
  Start_Options options = probed();
  options.preload = {preload_library("throw_probe")};

  Starter_Process starter({"--background"}, options);

  EXPECT_EQ(-SIGABRT, starter.wait_status()) << starter.log();
  const std::vector<Record> records = own_records(starter);
  ASSERT_EQ(1u, records.size()) << starter.log();
  expect_record(records[0], emergency("Unhandled exception is caught, thrown on the way\n"));
}

TEST(terminate_process, records_a_lack_of_memory_before_the_dispositions_are_in_force)
{
  for (Start_Options options : {probed(), Start_Options()}) {
    SCOPED_TRACE(options.probe);
    options.preload = {preload_library("throw_probe")};
    options.env["THROW_PROBE_MEMORY"] = "1";

    Starter_Process starter({"--background"}, options);

    EXPECT_EQ(-SIGABRT, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("Unhandled exception is caught, std::bad_alloc\n")) << starter.log();
  }
}
