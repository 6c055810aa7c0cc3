// Many stalls, and much work without any, under the companion guard. STARTER_STRESS_COUNT sets the number of stalls of
// each case, and the tenths of a second that each process works; the default is small enough for every test run.

#include "tests/support/hanger.h"
#include "tests/support/stress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>

namespace
{
const std::string HANGS_NOW = " in one callback for ";

// The kinds, with one to eight threads.
const Loop WATCHED[] = {
    {"select_1", {"--reactor", "select", "--threads", "1"}, 1},
    {"select_2", {"--reactor", "select", "--threads", "2"}, 2},
    {"tp_2", {"--reactor", "tp", "--threads", "2"}, 3},
    {"tp_8", {"--reactor", "tp", "--threads", "8"}, 9},
    {"dev_poll_1", {"--reactor", "dev_poll", "--threads", "1"}, 1},
    {"dev_poll_2", {"--reactor", "dev_poll", "--threads", "2"}, 3},
    {"dev_poll_8", {"--reactor", "dev_poll", "--threads", "8"}, 9},
    {"priority_1", {"--reactor", "priority", "--threads", "1"}, 1},
    {"priority_2", {"--reactor", "priority", "--threads", "2"}, 2},
};

class guard_stress : public testing::TestWithParam<Loop>, protected Stress
{
};
} // namespace

// A process writes five records a minute, so each has five stalls.
TEST_P(guard_stress, reports_every_stall_with_the_function_that_hangs)
{
  for (int done = 0; done < count_; done += 5) {
    Hanger_Commands commands;
    Starter_Process starter(commands.make_args(GetParam().args, "-t 100"), with_slow_allocator());
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    for (const Hang& hang : HANGS) {
      SCOPED_TRACE(testing::Message() << "after " << done << " stalls, " << hang);
      starter.forget_log();
      pass_time(up_to(30000));
      ASSERT_TRUE(commands.hang(starter, hang)) << starter.log();
      ASSERT_TRUE(starter.wait_for_record("\n.\n")) << starter.log();
      EXPECT_EQ(1u, starter.count(HANGS_NOW)) << starter.log();
      EXPECT_EQ(1u, starter.count('(' + std::string(hang.function) + '+')) << starter.log();
      ASSERT_TRUE(commands.release(starter)) << starter.log();
      ASSERT_TRUE(starter.wait_for_record(" is back after ")) << starter.log();
    }
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();
  }
}

TEST_P(guard_stress, reports_nothing_of_short_callbacks_at_full_load_and_of_reloads)
{
  Hanger_Commands commands;
  const std::string busy = dynamic_directive("Busy", "busy", "_make_Busy", "8");
  Starter_Process starter(commands.make_args(GetParam().args, "-t 1000", busy));
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100) * count_;
  for (unsigned n = 1; std::chrono::steady_clock::now() < end; ++n) {
    std::this_thread::sleep_for(std::chrono::milliseconds(up_to(200)));
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("and reconfiguring ...", n)) << starter.log();
    ASSERT_TRUE(GetParam().threads == 1 || starter.wait_for_event_loop()); // a signal during a reload may cost a thread
  }
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(0u, starter.count(HANGS_NOW)) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(loops, guard_stress, testing::ValuesIn(WATCHED), loop_name);
