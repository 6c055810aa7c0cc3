// The tests send signals at random moments, many times. STARTER_STRESS_COUNT sets the number of runs of each case; the
// default is small enough for every test run. A process that still exists after a minute has hung.

#include "tests/support/loops.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include <signal.h>

namespace
{
struct Load
{
  const char* name;
  unsigned bytes; // those that circulate in the busy service, 0 for a process without services
};

std::ostream& operator<<(std::ostream& out, const Load& load)
{
  return out << load.name;
}

const Load LOADS[] = {{"idle", 0}, {"busy", 4}};

int stress_count()
{
  const char* const text = std::getenv("STARTER_STRESS_COUNT");
  return text && *text ? std::atoi(text) : 20;
}

std::vector<std::string> make_args(const Loop& loop, const Load& load)
{
  return load.bytes == 0 ? loop.args : with_service(loop.args, "busy", "_make_Busy", std::to_string(load.bytes));
}

void pass_time(unsigned usec)
{
  const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(usec);
  while (std::chrono::steady_clock::now() < until)
    std::this_thread::yield();
}

class signal_stress : public testing::TestWithParam<std::tuple<Loop, Load>>
{
protected:
  const int count_ = stress_count();
  std::mt19937 random_{20261};

  unsigned up_to(unsigned usec) { return std::uniform_int_distribution<unsigned>(0, usec)(random_); }
};

std::string case_name(const testing::TestParamInfo<std::tuple<Loop, Load>>& info)
{
  return std::string(std::get<0>(info.param).name) + '_' + std::get<1>(info.param).name;
}
} // namespace

TEST_P(signal_stress, ends_on_a_termination_at_any_moment)
{
  const auto& [loop, load] = GetParam();
  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    Starter_Process starter(make_args(loop, load));
    ASSERT_TRUE(wait_for_dispositions(starter)) << starter.log();

    pass_time(up_to(8000));
    starter.send(i % 3 == 0 ? SIGINT : i % 3 == 1 ? SIGQUIT : SIGTERM);

    ASSERT_EQ(0, starter.wait_status()) << starter.log();
    ASSERT_EQ(1u, starter.count("caught in [")) << starter.log();
  }
}

TEST_P(signal_stress, ends_on_a_fault_with_one_record)
{
  const auto& [loop, load] = GetParam();
  for (int i = 0; i < count_; ++i) {
    const int signo = FAULTS[static_cast<std::size_t>(i) % FAULTS.size()];
    SCOPED_TRACE(testing::Message() << "run " << i << ", signal " << signo);
    Starter_Process starter(make_args(loop, load));
    ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();

    pass_time(up_to(3000));
    const std::vector<pid_t> tids = starter.threads();
    if (i % 2 == 0)
      starter.send(signo);
    else
      starter.send_to_thread(tids[up_to(static_cast<unsigned>(tids.size()) - 1)], signo);

    ASSERT_EQ(0, starter.wait_status()) << starter.log();
    ASSERT_EQ(1u, starter.count("the back trace:")) << starter.log();
  }
}

TEST_P(signal_stress, goes_on_after_a_hang_up_at_any_moment)
{
  const auto& [loop, load] = GetParam();
  Starter_Process starter(make_args(loop, load));
  ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();

  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    ASSERT_TRUE(loop.threads == 1 || starter.wait_for_event_loop()); // a signal during a reload may cost a thread
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("and reconfiguring ...", static_cast<unsigned>(i) + 1)) << starter.log();
    pass_time(up_to(1000));
  }
  ASSERT_TRUE(starter.is_running()) << starter.log();
  ASSERT_EQ(loop.threads, starter.threads().size());
  starter.send(SIGTERM);

  ASSERT_EQ(0, starter.wait_status()) << starter.log();
}

// Services are replaced while loop threads work for them.
TEST_P(signal_stress, reloads_services_at_work_on_a_hang_up)
{
  const auto& [loop, load] = GetParam();
  if (load.bytes == 0)
    return;
  Temp_Dir dir;
  std::vector<std::string> args = loop.args;
  args.insert(args.end(), {"-f", dir.write("x.conf", dynamic_directive("Busy", "busy", "_make_Busy", "4") +
                                                         dynamic_directive("Talker", "talker", "_make_Talker"))});
  Starter_Process starter(args);
  ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();

  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    ASSERT_TRUE(loop.threads == 1 || starter.wait_for_event_loop());
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", static_cast<unsigned>(i) + 2)) << starter.log();
    pass_time(up_to(1000));
  }
  ASSERT_EQ(loop.threads, starter.threads().size());
  starter.send(SIGTERM);

  ASSERT_EQ(0, starter.wait_status()) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(loops, signal_stress, testing::Combine(testing::ValuesIn(LOOPS), testing::ValuesIn(LOADS)),
                         case_name);
