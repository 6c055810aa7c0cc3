// Hang-ups and terminations at random moments, with each companion alone and with all together, idle and busy.
// STARTER_STRESS_COUNT sets the number of runs of each case, as in signal_stress_test.

#include "tests/support/companions.h"
#include "tests/support/fake_notify_socket.h"
#include "tests/support/loops.h"
#include "tests/support/stress.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include <signal.h>

namespace
{
// All companions together have no name.
std::vector<std::string> companion_cases()
{
  std::vector<std::string> names = companion_names();
  names.push_back("");
  return names;
}

// The loops that differ in how a reload is made, and how an end.
std::vector<Loop> some_loops()
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    for (const std::string name : {"default", "tp_4", "dev_poll", "dev_poll_2", "priority"})
      if (loop.name == name)
        loops.push_back(loop);
  return loops;
}

using Case = std::tuple<std::string, Loop, Load>;

std::string case_name(const testing::TestParamInfo<Case>& info)
{
  const auto& [name, loop, load] = info.param;
  return (name.empty() ? "all" : name) + '_' + loop.name + '_' + load.name;
}

class companion_stress : public testing::TestWithParam<Case>, protected Stress
{
protected:
  // The talker tells when a reload has come to its end.
  std::vector<std::string> make_args() const
  {
    const auto& [companion, loop, load] = GetParam();
    std::string directives;
    for (const std::string& name : companion_names())
      if (companion.empty() || companion == name)
        directives += companion_directive(name);
    if (load.bytes != 0)
      directives += dynamic_directive("Busy", "busy", "_make_Busy", std::to_string(load.bytes));
    directives += dynamic_directive("Talker", "talker", "_make_Talker");

    std::vector<std::string> args = loop.args;
    args.insert(args.end(), {"-f", dir_.write("x.conf", directives)});
    return args;
  }

  const Loop& loop() const { return std::get<Loop>(GetParam()); }

  // A companion that notifies systemd has somebody who listens, and one that listens itself has a directory for that.
  Start_Options notifying() const
  {
    Start_Options options;
    options.env["NOTIFY_SOCKET"] = dir_ / "notify";
    options.env["RUNTIME_DIRECTORY"] = dir_.path();
    return options;
  }

private:
  Temp_Dir dir_;
  Fake_Notify_Socket systemd_{dir_ / "notify"};
};
} // namespace

TEST_P(companion_stress, ends_on_a_termination_at_any_moment)
{
  const std::vector<std::string> args = make_args();
  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    Starter_Process starter(args, notifying());
    ASSERT_TRUE(wait_for_dispositions(starter)) << starter.log();

    pass_time(up_to(8000));
    starter.send(i % 3 == 0 ? SIGINT : i % 3 == 1 ? SIGQUIT : SIGTERM);

    ASSERT_EQ(0, starter.wait_status()) << starter.log();
    ASSERT_EQ(1u, starter.count("caught in [")) << starter.log();
  }
}

TEST_P(companion_stress, goes_on_after_a_hang_up_at_any_moment)
{
  Starter_Process starter(make_args(), notifying());
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(loop().threads == 1 || starter.wait_for_event_loop()) << starter.log();
  const std::size_t threads = starter.threads().size(); // those of the companions included

  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    ASSERT_TRUE(loop().threads == 1 || starter.wait_for_event_loop());
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", static_cast<unsigned>(i) + 2)) << starter.log();
    pass_time(up_to(1000));
  }
  EXPECT_TRUE(starter.wait_for_threads(static_cast<unsigned>(threads))) << starter.threads().size();
  starter.send(SIGTERM);

  ASSERT_EQ(0, starter.wait_status()) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(companions, companion_stress,
                         testing::Combine(testing::ValuesIn(companion_cases()), testing::ValuesIn(some_loops()),
                                          testing::ValuesIn(LOADS)),
                         case_name);
