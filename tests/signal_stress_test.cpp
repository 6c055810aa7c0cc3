// The tests send signals at random moments, many times. STARTER_STRESS_COUNT sets the number of runs of each case; the
// default is small enough for every test run. A process that still exists after a minute has hung.

#include "tests/support/loops.h"
#include "tests/support/stress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <filesystem>
#include <iostream>
#include <thread>

#include <signal.h>

namespace
{
std::vector<std::string> make_args(const Loop& loop, const Load& load)
{
  return load.bytes == 0 ? loop.args : with_service(loop.args, "busy", "_make_Busy", std::to_string(load.bytes));
}

class signal_stress : public testing::TestWithParam<std::tuple<Loop, Load>>, protected Stress
{
};

class notification_stress : public testing::TestWithParam<Loop>, protected Stress
{
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

class reload_stress : public testing::TestWithParam<Loop>, protected Stress
{
};

// Services are replaced while loop threads work for them.
TEST_P(reload_stress, reloads_services_at_work_on_a_hang_up)
{
  const Loop& loop = GetParam();
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

// A signal handler that waits for a lock of the reactor's notifications would wait for the thread that it interrupts.
TEST_P(notification_stress, ends_on_a_termination_while_a_service_notifies_all_the_time)
{
  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    Starter_Process starter(with_service(GetParam().args, "notifier", "_make_Notifier"));
    ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

    pass_time(up_to(3000));
    starter.send(SIGTERM);

    ASSERT_EQ(0, starter.wait_status()) << starter.log();
    ASSERT_EQ(1u, starter.count("caught in [")) << starter.log();
  }
}

INSTANTIATE_TEST_SUITE_P(loops, notification_stress, testing::ValuesIn(LOOPS), loop_name);

// ---- What many reloads cost

// Without the configuration file, which is open until a reload has ended.
unsigned long count_descriptors(const Starter_Process& starter)
{
  unsigned long count = 0;
  std::error_code ignored; // a descriptor may be closed meanwhile
  for (const auto& fd : std::filesystem::directory_iterator("/proc/" + std::to_string(starter.pid()) + "/fd", ignored))
    count += std::filesystem::read_symlink(fd, ignored).filename() == "x.conf" ? 0 : 1;
  return count;
}

// The figures of a process that a leak makes grow. The smallest one of many readings is kept, as a busy service holds
// more memory at one moment than at another.
class Usage
{
public:
  void read(Starter_Process& starter)
  {
    const std::string log = starter.log();
    const std::string label = "Memory in use: ";
    heap_ = std::min(heap_, std::stoul(log.substr(log.rfind(label) + label.size())));
    resident_ = std::min(resident_, std::stoul(starter.status_field("RssAnon"))); // in KiB
    descriptors_ = std::min(descriptors_, count_descriptors(starter));
  }

  unsigned long heap() const { return heap_; }
  unsigned long resident() const { return resident_; }
  unsigned long descriptors() const { return descriptors_; }

private:
  unsigned long heap_ = ULONG_MAX;
  unsigned long resident_ = ULONG_MAX;
  unsigned long descriptors_ = ULONG_MAX;
};

std::ostream& operator<<(std::ostream& out, const Usage& usage)
{
  return out << usage.heap() << " bytes of the heap, " << usage.resident() << " KiB resident, " << usage.descriptors()
             << " descriptors";
}

// The number of bytes that the heap of services at work differs by from one moment to another. A pool needs a thousand
// reloads until it grows no more.
unsigned long fluctuation(const Loop& loop, const Load& load)
{
  if (load.bytes == 0)
    return 0;
  return loop.threads == 1 ? 1 << 16 : 1 << 20;
}

// The number of descriptors that a pool may still hold of services that are gone: a loop thread that the system has put
// aside in a callback keeps the event handler, which has a pipe.
unsigned long held_descriptors(const Loop& loop, const Load& load)
{
  return load.bytes == 0 || loop.threads == 1 ? 0 : 2 * loop.threads;
}

class growth_stress : public testing::TestWithParam<std::tuple<Loop, Load>>, protected Stress
{
};

// The first reloads may still grow what the framework keeps for ever.
TEST_P(growth_stress, grows_neither_memory_nor_descriptors_with_the_number_of_reloads)
{
  const int warm_up = 100;
  const int window = 50;
  const auto& [loop, load] = GetParam();
  Temp_Dir dir;
  const std::string meter = dynamic_directive("Meter", "meter", "_make_Meter");
  const std::string busy = load.bytes == 0 ? "" : dynamic_directive("Busy", "busy", "_make_Busy", "4");
  std::vector<std::string> args = loop.args;
  args.insert(args.end(), {"-f", dir.write("x.conf", busy + meter)});
  Starter_Process starter(args);
  ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();

  Usage before;
  Usage after;
  const int count = warm_up + 2 * window + count_;
  for (int i = 0; i < count; ++i) {
    SCOPED_TRACE(i);
    ASSERT_TRUE(loop.threads == 1 || starter.wait_for_event_loop()) << starter.log();
    starter.forget_log();
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("Memory in use: ")) << starter.log();
    ASSERT_EQ(1u, starter.count("and reconfiguring ...")) << starter.log();
    if (i >= warm_up && i < warm_up + window)
      before.read(starter);
    if (i >= count - window)
      after.read(starter);
    std::this_thread::sleep_for(std::chrono::microseconds(up_to(100)));
  }
  ASSERT_EQ(loop.threads, starter.threads().size());
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  std::cout << count << " reloads: " << before << "; then " << after << std::endl;
  const unsigned long growth = fluctuation(loop, load);
  EXPECT_LE(after.heap(), before.heap() + growth);
  // A thread may use a page of its stack for the first time.
  EXPECT_LE(after.resident(), before.resident() + 128 + growth / 1024);
  EXPECT_LE(after.descriptors(), before.descriptors() + held_descriptors(loop, load));
}

INSTANTIATE_TEST_SUITE_P(loops, reload_stress, testing::ValuesIn(LOOPS), loop_name);
INSTANTIATE_TEST_SUITE_P(loops, growth_stress, testing::Combine(testing::ValuesIn(LOOPS), testing::ValuesIn(LOADS)),
                         case_name);
INSTANTIATE_TEST_SUITE_P(loops, signal_stress, testing::Combine(testing::ValuesIn(LOOPS), testing::ValuesIn(LOADS)),
                         case_name);
