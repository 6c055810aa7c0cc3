#include "tests/support/command.h"
#include "tests/support/hanger.h"
#include "tests/support/logged.h"
#include "tests/support/scoped_env.h"
#include "tests/support/signal_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <signal.h>

namespace
{
const std::string HANGS_NOW = " in one callback for ";
const std::string IS_BACK = " is back after ";

// The loops that differ in how a thread waits and how it comes to a callback.
std::vector<Loop> some_loops()
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    for (const std::string name : {"select", "tp_4", "dev_poll", "dev_poll_4", "priority"})
      if (loop.name == name)
        loops.push_back(loop);
  return loops;
}

// The record of the first stall, up to the end of its back trace; empty if there is none.
std::string stall_record(Starter_Process& starter)
{
  const std::string log = starter.log();
  const std::size_t begin = log.find(HANGS_NOW);
  return begin == std::string::npos ? "" : log.substr(begin, log.find("\n.\n", begin) - begin);
}

// How often each thread of the program has begun to wait.
std::vector<std::string> wake_ups(const Starter_Process& starter)
{
  std::vector<std::string> counts;
  for (const pid_t tid : starter.threads())
    if (process_status_field(tid, "Name") != "guard")
      counts.push_back(process_status_field(tid, "voluntary_ctxt_switches"));
  return counts;
}

std::string crowd(const char* kind, unsigned members, unsigned usec)
{
  return dynamic_directive("Crowd", "crowd", "_make_Crowd",
                           std::string(kind) + ' ' + std::to_string(members) + ' ' + std::to_string(usec));
}

class guard_stall : public testing::TestWithParam<std::tuple<Loop, Hang>>
{
};

class guard_loop : public testing::TestWithParam<Loop>
{
};

std::string case_name(const testing::TestParamInfo<std::tuple<Loop, Hang>>& info)
{
  return std::string(std::get<0>(info.param).name) + '_' + std::get<1>(info.param).function;
}
} // namespace

// ---- Callbacks that hang

TEST_P(guard_stall, is_reported_with_the_function_that_hangs_and_with_its_end)
{
  const auto& [loop, hang] = GetParam();
  Hanger_Commands commands;
  Starter_Process starter(commands.make_args(loop.args, "-t 100"), with_slow_allocator());
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  ASSERT_TRUE(commands.hang(starter, hang)) << starter.log();
  ASSERT_TRUE(starter.wait_for_record(HANGS_NOW)) << starter.log();
  ASSERT_TRUE(starter.wait_for_record("\n.\n")) << starter.log();
  EXPECT_THAT(stall_record(starter), testing::HasSubstr(std::string(hang.function) + '+')) << starter.log();
  EXPECT_EQ(0u, starter.count(IS_BACK)) << starter.log();

  ASSERT_TRUE(commands.release(starter)) << starter.log();
  EXPECT_TRUE(starter.wait_for_record(IS_BACK)) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count(HANGS_NOW)) << starter.log();
  EXPECT_EQ(1u, starter.count(IS_BACK)) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(all, guard_stall, testing::Combine(testing::ValuesIn(some_loops()), testing::ValuesIn(HANGS)),
                         case_name);

TEST_P(guard_loop, ends_with_the_fault_record_of_the_function_that_hangs_for_too_long)
{
  for (const Hang& hang : HANGS) {
    SCOPED_TRACE(hang);
    Hanger_Commands commands;
    Starter_Process starter(commands.make_args(GetParam().args, "-t 50 -k 150"), with_slow_allocator());
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    ASSERT_TRUE(commands.hang(starter, hang)) << starter.log();

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    const std::string log = starter.log();
    const std::size_t fault = log.find("Signal 6 (Aborted) caught in [");
    ASSERT_NE(std::string::npos, fault) << log;
    EXPECT_THAT(log.substr(fault), testing::HasSubstr(std::string(hang.function) + '+')) << log;
    EXPECT_EQ(1u, starter.count("Signal 6 (Aborted)")) << log;
    EXPECT_EQ(1u, starter.count(HANGS_NOW)) << log;
  }
}

TEST_P(guard_loop, reports_each_stall_again_and_counts_it_over_a_reload)
{
  Hanger_Commands commands;
  Starter_Process starter(commands.make_args(GetParam().args, "-t 50 -w"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  for (unsigned n = 1; n <= 3; ++n) {
    ASSERT_TRUE(commands.hang(starter, HANGS[0])) << starter.log();
    ASSERT_TRUE(starter.wait_for_record(", stall " + std::to_string(n) + " of this process,")) << starter.log();
    ASSERT_TRUE(commands.release(starter)) << starter.log();
    ASSERT_TRUE(starter.wait_for_record(IS_BACK, n)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop());
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("and reconfiguring ...", n)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop());
  }
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

TEST_P(guard_loop, reports_no_more_than_five_stalls_a_minute)
{
  Hanger_Commands commands;
  Starter_Process starter(commands.make_args(GetParam().args, "-t 20"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  for (unsigned n = 1; n <= 5; ++n) {
    ASSERT_TRUE(commands.hang(starter, HANGS[0])) << starter.log();
    ASSERT_TRUE(starter.wait_for_record(HANGS_NOW, n)) << starter.log();
    ASSERT_TRUE(commands.release(starter)) << starter.log();
    ASSERT_TRUE(starter.wait_for_record(IS_BACK, n)) << starter.log();
  }
  ASSERT_TRUE(commands.hang(starter, HANGS[0])) << starter.log();
  std::this_thread::sleep_for(std::chrono::milliseconds(200)); // a record would come in this time
  ASSERT_TRUE(commands.release(starter)) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(5u, starter.count(HANGS_NOW)) << starter.log();
  EXPECT_EQ(5u, starter.count(IS_BACK)) << starter.log();
}

TEST_P(guard_loop, tells_other_services_how_many_stalls_there_were_and_how_many_threads_hang)
{
  Hanger_Commands commands;
  Starter_Process starter(commands.make_args(GetParam().args, "-t 50"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_TRUE(commands.tells(starter, "The guard tells 0 stalls, and 0 threads that hang.")) << starter.log();

  for (const std::string n : {"1", "2"}) {
    const unsigned count = static_cast<unsigned>(std::stoul(n));
    ASSERT_TRUE(commands.hang(starter, HANGS[0])) << starter.log();
    ASSERT_TRUE(starter.wait_for_record("\n.\n", count)) << starter.log();
    EXPECT_TRUE(commands.tells(starter, "The guard tells " + n + " stalls, and 1 threads that hang.")) << starter.log();

    ASSERT_TRUE(commands.release(starter)) << starter.log();
    ASSERT_TRUE(starter.wait_for_record(IS_BACK, count)) << starter.log();
    EXPECT_TRUE(commands.tells(starter, "The guard tells " + n + " stalls, and 0 threads that hang.")) << starter.log();

    ASSERT_TRUE(starter.wait_for_event_loop());
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("and reconfiguring ...", count)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop());
    EXPECT_TRUE(commands.tells(starter, "The guard tells " + n + " stalls, and 0 threads that hang.", 2))
        << starter.log();
  }
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

// ---- Callbacks that do not hang

TEST_P(guard_loop, reports_nothing_of_a_process_that_is_idle_and_leaves_its_waits_alone)
{
  Hanger_Commands commands;
  Starter_Process starter(commands.make_args(GetParam().args, "-t 20"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::size_t threads = starter.threads().size();
  std::this_thread::sleep_for(std::chrono::milliseconds(300)); // those that wait for their turn are asked once

  const std::vector<std::string> before = wake_ups(starter);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(before, wake_ups(starter));
  EXPECT_EQ(threads, starter.threads().size());
  EXPECT_EQ(0u, starter.count("Interrupted system call")) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(0u, starter.count(HANGS_NOW)) << starter.log();
}

// The process has no right to ask the system about its own threads when it has switched its user.
TEST_P(guard_loop, reports_stalls_only_after_a_switch_of_the_user)
{
  if (getuid() != 0)
    GTEST_SKIP() << "only root can switch the user";
  std::vector<std::string> args = GetParam().args;
  args.insert(args.end(), {"--user", "nobody"});
  Hanger_Commands commands;
  Starter_Process starter(commands.make_args(args, "-t 50"));
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_threads(GetParam().threads + 2)) << starter.log(); // with two of services

  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(0u, starter.count(HANGS_NOW)) << starter.log();
  EXPECT_EQ(GetParam().threads + 2, starter.threads().size()) << starter.log();
  EXPECT_EQ(0u, starter.count("Interrupted system call")) << starter.log();

  ASSERT_TRUE(commands.hang(starter, HANGS[0])) << starter.log();
  ASSERT_TRUE(starter.wait_for_record("\n.\n")) << starter.log();
  EXPECT_THAT(stall_record(starter), testing::HasSubstr("hang_asleep+")) << starter.log();
  ASSERT_TRUE(commands.release(starter)) << starter.log();
  ASSERT_TRUE(starter.wait_for_record(IS_BACK)) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

// A turn of select or priority calls all of them: it is much longer than the limit.
TEST_P(guard_loop, reports_nothing_of_many_short_callbacks)
{
  for (const char* const kind : {"inputs", "timers", "notifications"}) {
    SCOPED_TRACE(kind);
    Hanger_Commands commands;
    Starter_Process starter(commands.make_args(GetParam().args, "-t 200", crowd(kind, 60, 10000)));
    ASSERT_TRUE(starter.wait_for_record("The crowd has been served.", 2)) << starter.log();
    starter.send(SIGTERM);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(0u, starter.count(HANGS_NOW)) << starter.log();
  }
}

// The wait for the turn and the callback together last longer than the limit, and each of them does not.
TEST(guard, reports_nothing_of_a_callback_that_follows_a_long_wait_for_the_turn)
{
  for (const char* const reactor : {"tp", "dev_poll"}) {
    Hanger_Commands commands;
    Starter_Process starter(
        commands.make_args({"--reactor", reactor, "--threads", "8"}, "-t 200", crowd("inputs", 3, 120000)));
    ASSERT_TRUE(starter.wait_for_record("The crowd has been served.", 10)) << starter.log();
    starter.send(SIGTERM);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(0u, starter.count(HANGS_NOW)) << starter.log();
  }
}

INSTANTIATE_TEST_SUITE_P(loops, guard_loop, testing::ValuesIn(some_loops()), loop_name);

// ---- Arguments

TEST(guard, refuses_wrong_arguments_with_one_error_record)
{
  const std::tuple<const char*, const char*> cases[] = {
      {"-t", "-t needs a value"},
      {"-t 19", "-t takes 20 to 3600000 milliseconds, and not '19'"},
      {"-t 3600001", "-t takes 20 to 3600000 milliseconds, and not '3600001'"},
      {"-t 1s", "-t takes 20 to 3600000 milliseconds, and not '1s'"},
      {"-t -5", "-t takes 20 to 3600000 milliseconds, and not '-5'"},
      {"-k x", "-k takes 20 to 3600000 milliseconds, and not 'x'"},
      {"-k 1000", "-k 1000 is not more than -t 1000"},
      {"-q", "there is no option -q"},
      {"-w now", "'now' is no option"}};

  for (const auto& [params, reason] : cases) {
    SCOPED_TRACE(params);
    Temp_Dir dir;
    Starter_Process starter({"-f", dir.write("x.conf", companion_directive("guard", params))}, probed());
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_EQ(1u, starter.threads().size());
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();

    const std::vector<Logged> records = records_with(starter, "guard");
    EXPECT_THAT(records,
                testing::ElementsAre(Logged{LM_ERROR, -1, "Failed to start the guard: " + std::string(reason) + '\n',
                                            "companions/guard/guard.cpp"}))
        << starter.log();
  }
}

// Such a program is older than the service.
TEST(guard, refuses_a_program_that_has_no_note_of_its_turns)
{
  Temp_Dir dir;
  const std::string old = dir / "starter";
  (void)output_of("objcopy -R .note.starter " + starter_executable() + ' ' + old + " && chmod 755 " + old);
  const Scoped_Env executable("STARTER_EXECUTABLE", old.c_str());
  Starter_Process starter({"-f", dir.write("x.conf", companion_directive("guard"))}, probed());
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_EQ(1u, starter.threads().size());
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();

  EXPECT_THAT(records_with(starter, "guard"),
              testing::ElementsAre(Logged{
                  LM_ERROR, -1, "Failed to start the guard: this program does not tell the turns of its loop threads\n",
                  "companions/guard/guard.cpp"}))
      << starter.log();
}

TEST(guard, refuses_a_second_guard_and_keeps_the_first)
{
  Temp_Dir dir;
  std::string second = companion_directive("guard");
  second.replace(second.find("dynamic Guard"), 13, "dynamic Other");
  Starter_Process starter({"-f", dir.write("x.conf", companion_directive("guard") + second)});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_EQ(2u, starter.threads().size());
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Failed to start the guard: it is there under another name")) << starter.log();
}
