#include "tests/support/loops.h"
#include "tests/support/signal_records.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>
#include <tuple>
#include <utility>

#include <signal.h>
#include <sys/syscall.h>

namespace
{
using Texts = std::vector<std::string>;

const char RECORD[] = "and reconfiguring ...";

std::vector<Loop> loops_of(bool is_single)
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    if ((loop.threads == 1) == is_single)
      loops.push_back(loop);
  return loops;
}

// The process with a configuration file: unlike a directive of the command line, a file is read again.
class Configured_Process
{
public:
  Configured_Process(const Loop& loop, const std::string& directives, const Start_Options& options = {})
      : starter(with_file(loop.args, dir.write("x.conf", directives)), options)
  {
  }

private:
  static Texts with_file(Texts args, const std::string& file)
  {
    args.insert(args.end(), {"-f", file});
    return args;
  }

  const Temp_Dir dir;

public:
  Starter_Process starter;
};

std::string raiser(const std::string& params)
{
  return dynamic_directive("R", "raiser", "_make_Raiser", params);
}

// The lines of the log that begin with one of the words: the records of the test's services and those of signals.
Texts story_of(Starter_Process& starter)
{
  Texts story;
  std::istringstream log(starter.log());
  for (std::string line; std::getline(log, line);)
    for (const char* const word : {"Raiser", "Callback", "Toiler", "Runner", "Signal 1 ", "Signal 15 "})
      if (line.compare(0, std::string(word).size(), word) == 0)
        story.push_back(line);
  return story;
}

const char HANG_UP[] = "Signal 1 (Hangup) caught, and reconfiguring ... ";
const char TERMINATION[] = "Signal 15 (Terminated) caught in [starter].";
const char COMES[] = "Raiser comes.";
const char IS_THERE[] = "Raiser is there.";
const char IS_GONE[] = "Raiser is gone.";
const char IS_FINALISED[] = "Raiser is finalised.";
const char BEGINS[] = "Callback has begun.";
const char ENDS[] = "Callback has ended.";

// The framework finalises a service before it initialises the successor.
const Texts START{COMES, IS_THERE};
const Texts RELOAD{IS_GONE, IS_FINALISED, COMES, IS_THERE};
const Texts END{TERMINATION, IS_GONE, IS_FINALISED};

Texts join(const std::vector<Texts>& parts)
{
  Texts all;
  for (const Texts& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}
} // namespace

// ---- Every loop

class hang_up : public testing::TestWithParam<Loop>
{
};

TEST_P(hang_up, while_services_load_is_recorded_at_once_and_served_when_all_are_there)
{
  Configured_Process process(GetParam(), raiser("init 1") + dynamic_directive("T", "talker", "_make_Talker"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record("talker init.", 2)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(join({{COMES, HANG_UP, IS_THERE}, RELOAD, END}), story_of(starter)) << starter.log();
  const std::string log = starter.log();
  EXPECT_LT(log.find("is started."), log.find(IS_GONE)) << log;
}

TEST_P(hang_up, several_while_services_load_are_served_together)
{
  Configured_Process process(GetParam(), raiser("init 1 1 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(IS_THERE, 2)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(join({{COMES, HANG_UP, HANG_UP, HANG_UP, IS_THERE}, RELOAD, END}), story_of(starter)) << starter.log();
}

// The kernel holds a hang-up back from the thread that serves one.
TEST_P(hang_up, during_a_reload_is_recorded_and_served_after_it)
{
  Configured_Process process(GetParam(), raiser("reload 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(IS_THERE)) << starter.log();
  ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();

  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record(IS_THERE, 3)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(join({START, {HANG_UP}, RELOAD, {HANG_UP}, RELOAD, END}), story_of(starter)) << starter.log();
}

TEST_P(hang_up, after_the_end_of_the_loop_is_recorded_and_not_served)
{
  Configured_Process process(GetParam(), raiser("fini 1"));
  Starter_Process& starter = process.starter;

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ((Texts{COMES, IS_THERE, IS_GONE, HANG_UP, IS_FINALISED}), story_of(starter)) << starter.log();
}

TEST_P(hang_up, after_a_termination_is_recorded_and_not_served)
{
  Configured_Process process(GetParam(), raiser("end 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();

  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ((Texts{COMES, IS_THERE, TERMINATION, IS_GONE, HANG_UP, IS_FINALISED}), story_of(starter)) << starter.log();
}

TEST_P(hang_up, together_with_a_termination_while_services_load_is_recorded_and_not_served)
{
  for (const auto& [signals, first, second] :
       {std::tuple("1 15", HANG_UP, TERMINATION), std::tuple("15 1", TERMINATION, HANG_UP)}) {
    SCOPED_TRACE(signals);
    Configured_Process process(GetParam(), raiser(std::string("init ") + signals));
    Starter_Process& starter = process.starter;

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ((Texts{COMES, first, second, IS_THERE, IS_GONE, IS_FINALISED}), story_of(starter)) << starter.log();
  }
}

TEST_P(hang_up, leaves_no_gap_in_the_repository_of_services)
{
  Configured_Process process(GetParam(), dynamic_directive("M", "meter", "_make_Meter") +
                                             dynamic_directive("T", "talker", "_make_Talker"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();

  Texts places;
  for (unsigned n = 2; n <= 4; ++n) {
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", n)) << starter.log();
    const std::string log = starter.log();
    const std::size_t at = log.rfind("Places for services: ");
    places.push_back(log.substr(at, log.find('\n', at) - at));
  }
  EXPECT_EQ(places[0], places[1]);
  EXPECT_EQ(places[0], places[2]);
}

INSTANTIATE_TEST_SUITE_P(loops, hang_up, testing::ValuesIn(LOOPS), loop_name);

// ---- A single loop

class single_loop : public testing::TestWithParam<Loop>
{
};

TEST_P(single_loop, is_reconfigured_between_callbacks)
{
  for (const char* const where : {"callback", "thread"}) {
    SCOPED_TRACE(where);
    Configured_Process process(GetParam(), raiser(std::string(where) + " 1"));
    Starter_Process& starter = process.starter;
    ASSERT_TRUE(starter.wait_for_record(IS_THERE, 2)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGTERM);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(join({START, {BEGINS, HANG_UP, ENDS}, RELOAD, END}), story_of(starter)) << starter.log();
  }
}

TEST_P(single_loop, records_each_hang_up_during_a_callback_and_is_reconfigured_afterwards)
{
  for (const char* const where : {"callback", "thread"}) {
    SCOPED_TRACE(where);
    Configured_Process process(GetParam(), raiser(std::string(where) + " 1 1 1 1 1"));
    Starter_Process& starter = process.starter;
    ASSERT_TRUE(starter.wait_for_record(IS_THERE, 2)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGTERM);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(join({START, {BEGINS, HANG_UP, HANG_UP, HANG_UP, HANG_UP, HANG_UP, ENDS}, RELOAD, END}),
              story_of(starter))
        << starter.log();
  }
}

TEST_P(single_loop, is_not_reconfigured_when_a_termination_comes_first)
{
  for (const auto& [signals, first, second] :
       {std::tuple("1 15", HANG_UP, TERMINATION), std::tuple("15 1", TERMINATION, HANG_UP)}) {
    SCOPED_TRACE(signals);
    Configured_Process process(GetParam(), raiser(std::string("callback ") + signals));
    Starter_Process& starter = process.starter;

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ((Texts{COMES, IS_THERE, BEGINS, first, second, ENDS, IS_GONE, IS_FINALISED}), story_of(starter))
        << starter.log();
  }
}

// The program gives up waiting for a callback that hangs, so that even this loop is reconfigured.
TEST_P(single_loop, is_reconfigured_in_the_middle_of_a_callback_that_does_not_end)
{
  Configured_Process process(GetParam(), raiser("hold 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(ENDS)) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(join({START, {BEGINS, HANG_UP}, RELOAD, {ENDS}, END}), story_of(starter)) << starter.log();
}

// The hang-ups after the first one do not make the program wait longer.
TEST_P(single_loop, is_reconfigured_in_the_middle_of_such_a_callback_under_a_stream_of_hang_ups_too)
{
  Configured_Process process(GetParam(), raiser("hold 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(HANG_UP)) << starter.log();

  for (int n = 0; n < 40 && starter.count(IS_GONE) == 0; ++n) {
    starter.send(SIGHUP);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  EXPECT_NE(0u, starter.count(IS_GONE)) << starter.log();
}

TEST_P(single_loop, is_reconfigured_between_callbacks_without_a_timer_too)
{
  for (const char* const call : {"timer_create", "timer_settime"}) {
    SCOPED_TRACE(call);
    Configured_Process process(GetParam(), raiser("callback 1"), with_fault("FAULT_TIMER", call));
    Starter_Process& starter = process.starter;
    ASSERT_TRUE(starter.wait_for_record(IS_THERE, 2)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    const std::string log = starter.log();
    EXPECT_LT(log.find(ENDS), log.find(IS_GONE)) << log;
  }
}

// A system call in a callback is interrupted by the hang-up itself, and once more when the program gives up waiting.
TEST_P(single_loop, interrupts_a_callback_that_blocks_at_most_twice_and_is_reconfigured_once)
{
  Configured_Process process(GetParam(), dynamic_directive("S", "sleeper", "_make_Sleeper"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record("Sleeper sleeps.")) << starter.log();
  ASSERT_TRUE(starter.wait_until(
      [&] { return starter.waiting_call() == SYS_nanosleep || starter.waiting_call() == SYS_clock_nanosleep; }));

  starter.send(SIGHUP);

  ASSERT_TRUE(starter.wait_for_record("Sleeper was interrupted ")) << starter.log();
  EXPECT_TRUE(starter.wait_for_record("Sleeper was interrupted 2 times.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop());
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(2u, starter.count("Sleeper init.")) << starter.log();
  EXPECT_EQ(1u, starter.count(RECORD)) << starter.log();
}

TEST_P(single_loop, that_is_never_idle_is_reconfigured_between_callbacks)
{
  Configured_Process process(GetParam(), dynamic_directive("T", "toiler", "_make_Toiler"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();

  const unsigned times = 5;
  for (unsigned i = 1; i <= times; ++i) {
    ASSERT_TRUE(starter.wait_for_record("Toiler has work.", i)) << starter.log();
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("Toiler is gone", i)) << starter.log();
  }
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(times, starter.count(RECORD)) << starter.log();
  EXPECT_EQ(times + 1, starter.count("Toiler is gone between callbacks.")) << starter.log();
}

// A reactor of the kind dev_poll calls the timer's event handler with the pipe's event in its hand.
TEST_P(single_loop, keeps_no_event_for_the_next_owner_of_a_descriptor)
{
  const Temp_Dir dir;
  std::vector<std::string> args = GetParam().args;
  args.insert(args.end(), {"-f", dir.write("x.conf", dynamic_directive("R", "reopener", "_make_Reopener"))});
  Starter_Process starter(args);

  ASSERT_TRUE(starter.wait_for_record("Reopener has waited.")) << starter.log();
  EXPECT_EQ(0u, starter.count("Reopener was called for nothing.")) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

TEST_P(single_loop, goes_on_when_a_service_takes_over_the_signal_of_a_hang_up_that_is_due)
{
  Starter_Process starter(with_service(GetParam().args, "ender", "_make_Ender", "take"));
  ASSERT_TRUE(starter.wait_for_record(HANG_UP)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

// The program gives up waiting for a callback only while there is one.
TEST_P(single_loop, is_not_interrupted_once_it_was_reconfigured)
{
  Configured_Process process(GetParam(), raiser("callback 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(IS_THERE, 2)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  const std::string switches = starter.status_field("voluntary_ctxt_switches");
  std::this_thread::sleep_for(std::chrono::milliseconds(1300)); // longer than the program waits

  EXPECT_EQ(switches, starter.status_field("voluntary_ctxt_switches"));
}

TEST_P(single_loop, that_a_service_has_ended_stays_ended)
{
  Starter_Process starter(with_service(GetParam().args, "ender", "_make_Ender"));

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Signal 1 (Hangup) caught, and reconfiguring ...")) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(hang_up, single_loop, testing::ValuesIn(loops_of(true)), loop_name);

// ---- A pool

// The system call that the thread waits in, -1 for none.
static long present_call(pid_t tid)
{
  std::istringstream call(read_file("/proc/" + std::to_string(tid) + "/syscall"));
  long number = -1;
  call >> number;
  return call ? number : -1;
}

// The first loop thread that waits in such a system call; 0 if there is none.
static pid_t loop_thread_in(bool (*is_such)(long), const Starter_Process& starter)
{
  for (const pid_t tid : starter.threads())
    if (tid != starter.pid() && is_such(present_call(tid)))
      return tid;
  return 0;
}

static bool waits_for_events(long call)
{
  return waits_in_select(call) || waits_in_epoll(call);
}

static bool waits_for_its_turn(long call)
{
  return call == SYS_futex;
}

class pool : public testing::TestWithParam<Loop>
{
};

// The callback returns only when the main thread has finalised the service meanwhile.
TEST_P(pool, is_reconfigured_by_the_main_thread_while_a_callback_runs)
{
  Configured_Process process(GetParam(), raiser("hold"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(BEGINS)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send_to_thread(starter.pid(), SIGHUP);

  ASSERT_TRUE(starter.wait_for_record(ENDS)) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count(RECORD)) << starter.log();
  const std::string log = starter.log();
  EXPECT_LT(log.find(IS_GONE), log.find(ENDS)) << log;
}

TEST_P(pool, passes_the_hang_up_of_a_loop_thread_on_to_the_main_thread)
{
  Configured_Process process(GetParam(), raiser("hold 1"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(starter.wait_for_record(ENDS)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count(RECORD)) << starter.log();
  const std::string log = starter.log();
  EXPECT_LT(log.find(IS_GONE), log.find(ENDS)) << log;
}

TEST_P(pool, serves_every_hang_up_that_a_loop_thread_or_the_main_thread_gets)
{
  Configured_Process process(GetParam(), dynamic_directive("T", "talker", "_make_Talker"));
  Starter_Process& starter = process.starter;
  ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();

  // A loop thread that waits for its turn survives the signal in every pool.
  unsigned served = 1;
  for (const bool is_main : {false, true, false, false, true}) {
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    const pid_t tid = is_main ? 0 : loop_thread_in(waits_for_its_turn, starter);
    starter.send_to_thread(tid == 0 ? starter.pid() : tid, SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", ++served)) << starter.log();
    ASSERT_EQ(served - 1, starter.count(RECORD)) << starter.log();
  }
}

TEST_P(pool, is_not_reconfigured_after_a_termination)
{
  Configured_Process process(GetParam(), raiser("callback 15 1"));
  Starter_Process& starter = process.starter;

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count(COMES)) << starter.log();
  EXPECT_EQ(1u, starter.count(RECORD)) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(hang_up, pool, testing::ValuesIn(loops_of(false)), loop_name);

// Kept: while the main thread reloads and blocks the signal, a loop thread may get the next hang-up. This thread passes
// the signal on to the main thread, and ends where the wait of the reactor does not survive a signal. Operators wait
// for a hang-up to be served before they send another one.
TEST(hang_up_of_a_pool, during_a_reload_is_served_after_it_and_costs_every_pool_but_tp_a_thread)
{
  const std::pair<const char*, std::size_t> cases[] = {{"tp", 5}, {"dev_poll", 4}};

  for (const auto& [kind, threads] : cases) {
    SCOPED_TRACE(kind);
    const Temp_Dir dir;
    const std::string open = dir.write("open", "");
    const std::string conf = dir.write("x.conf", dynamic_directive("G", "gate", "_make_Gate", open));
    Starter_Process starter({"--reactor", kind, "--threads", "4", "-f", conf});
    ASSERT_TRUE(starter.wait_for_threads(5)) << starter.log();
    ASSERT_TRUE(starter.wait_until_idle());

    ASSERT_EQ(0, std::remove(open.c_str()));
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("Gate is closed.", 2)) << starter.log();
    const pid_t waiting = loop_thread_in(waits_for_events, starter);
    ASSERT_NE(0, waiting);
    starter.send_to_thread(waiting, SIGHUP);
    EXPECT_TRUE(starter.wait_for_record(RECORD, 2)) << starter.log();
    EXPECT_TRUE(starter.wait_for_threads(static_cast<unsigned>(threads))) << starter.threads().size();
    dir.write("open", "");

    EXPECT_TRUE(starter.wait_for_record("Gate is open", 3)) << starter.log();
    EXPECT_EQ(2u, starter.count(RECORD)) << starter.log();
    EXPECT_EQ(threads, starter.threads().size());
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}
