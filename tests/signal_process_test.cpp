#include "tests/support/loops.h"
#include "tests/support/requirements.h"
#include "tests/support/signal_records.h"
#include "tests/support/syscall_trace.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <tuple>
#include <utility>

#include <fcntl.h>
#include <signal.h>

namespace
{
using Texts = std::vector<std::string>;

const char SOURCE[] = "starter/starter.cpp";

// The set contains a signal of the C library itself when the process has ended a thread before.
std::vector<int> signals(const Starter_Process& starter, const std::string& field)
{
  std::vector<int> result = signals_in_mask(starter.status_field(field));
  result.erase(std::remove_if(result.begin(), result.end(), [](int signo) { return signo == 32 || signo == 33; }),
               result.end());
  return result;
}

std::vector<int> sorted(std::vector<int> signals)
{
  std::sort(signals.begin(), signals.end());
  return signals;
}

const std::vector<int> CAUGHT =
    sorted({SIGINT, SIGQUIT, SIGTERM, SIGILL, SIGSEGV, SIGFPE, SIGALRM, SIGXCPU, SIGBUS, SIGABRT, SIGHUP, SIGUSR2});
const std::vector<int> IGNORED = sorted({SIGPIPE, SIGIO, SIGURG});
} // namespace

class every_loop : public testing::TestWithParam<Loop>
{
protected:
  // Waits until the services have been loaded and the loop threads run.
  static bool is_up(Starter_Process& starter, const std::string& record)
  {
    return starter.wait_for_record(record) && wait_for_loop(starter, GetParam());
  }
};

TEST_P(every_loop, has_the_dispositions_from_the_opening_to_the_end)
{
  Starter_Process starter(with_service(GetParam().args, "talker", "_make_Talker"));
  ASSERT_TRUE(is_up(starter, "talker init.")) << starter.log();

  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(CAUGHT, signals(starter, "SigCgt"));
    EXPECT_EQ(IGNORED, signals(starter, "SigIgn"));
    // Signals are blocked while a record is made.
    EXPECT_TRUE(starter.wait_until([&] { return signals(starter, "SigBlk").empty(); }));

    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("and reconfiguring ...", static_cast<unsigned>(i) + 1)) << starter.log();
  }
}

TEST_P(every_loop, ends_in_order_with_status_0_on_each_termination_signal)
{
  for (const int signo : {SIGINT, SIGQUIT, SIGTERM}) {
    SCOPED_TRACE(strsignal(signo));
    Starter_Process starter(with_service(GetParam().args, "talker", "_make_Talker"), probed());
    ASSERT_TRUE(is_up(starter, "talker init.")) << starter.log();

    starter.send(signo);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("talker fini.")) << starter.log();
    const std::vector<Logged> found = records_with(starter, "caught in");
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ(info(caught_in(signo, "starter") + ".\n").in(SOURCE), found[0]);
  }
}

TEST_P(every_loop, ends_on_a_termination_just_before_it_waits)
{
  Start_Options options;
  options.preload = {preload_library("signal_in_wait")};
  Starter_Process starter(GetParam().args, options);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Signal 15 (Terminated) caught in [starter].")) << starter.log();
}

// The framework's own notification wakes the loop then.
TEST_P(every_loop, ends_on_a_termination_without_an_eventfd_too)
{
  Starter_Process starter(GetParam().args, with_fault("FAULT_EVENTFD"));
  ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

TEST_P(every_loop, ends_under_load_on_each_termination_signal)
{
  for (const int signo : {SIGINT, SIGQUIT, SIGTERM}) {
    SCOPED_TRACE(strsignal(signo));
    Starter_Process starter(with_service(GetParam().args, "busy", "_make_Busy"));
    ASSERT_TRUE(wait_for_loop(starter, GetParam())) << starter.log();

    starter.send(signo);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("caught in")) << starter.log();
  }
}

TEST_P(every_loop, logs_a_fault_with_a_back_trace_and_ends_with_status_0)
{
  for (const int signo : FAULTS) {
    SCOPED_TRACE(strsignal(signo));
    Starter_Process starter(with_service(GetParam().args, "talker", "_make_Talker"), probed());
    ASSERT_TRUE(is_up(starter, "talker init.")) << starter.log();

    starter.send(signo);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    const std::vector<Logged> found = records_with(starter, "caught in");
    ASSERT_EQ(1u, found.size());
    EXPECT_THAT(found[0], BeginsLike(alert(caught_in(signo, "starter") + ", the back trace:\n").in(SOURCE)));
    EXPECT_NE(std::string::npos, found[0].text.find("libc.so.6(")) << found[0].text; // the frame where the thread waits
  }
}

TEST_P(every_loop, applies_an_edited_configuration_on_a_hang_up_and_goes_on)
{
  Temp_Dir dir;
  const std::string file = dir.write("x.conf", dynamic_directive("First", "talker", "_make_Talker", "first"));
  std::vector<std::string> args = GetParam().args;
  args.insert(args.end(), {"-f", file});
  Starter_Process starter(args, probed());
  ASSERT_TRUE(is_up(starter, "first init.")) << starter.log();
  const std::vector<pid_t> threads = starter.threads();

  dir.write("x.conf", dynamic_directive("Second", "talker", "_make_Talker", "second"));
  starter.send(SIGHUP);

  ASSERT_TRUE(starter.wait_for_record("second init.")) << starter.log();
  EXPECT_EQ(threads, starter.threads());

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("second fini.")) << starter.log();
  const std::vector<Logged> found = records_with(starter, "reconfiguring");
  ASSERT_EQ(1u, found.size());
  EXPECT_EQ(info("Signal 1 (Hangup) caught, and reconfiguring ... \n").in(SOURCE), found[0]);
}

TEST_P(every_loop, hands_no_descriptor_that_wakes_it_to_programs_that_services_start)
{
  Starter_Process starter(with_service(GetParam().args, "talker", "_make_Talker"));
  ASSERT_TRUE(is_up(starter, "talker init.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::string process = "/proc/" + std::to_string(starter.pid());

  int bells = 0;
  for (const auto& fd : std::filesystem::directory_iterator(process + "/fd")) {
    if (std::filesystem::read_symlink(fd) != "anon_inode:[eventfd]")
      continue;
    ++bells;
    std::ifstream info(process + "/fdinfo/" + fd.path().filename().string());
    std::string text;
    while (info >> text && text != "flags:")
      ;
    unsigned flags = 0;
    info >> std::oct >> flags;
    EXPECT_EQ(static_cast<unsigned>(O_CLOEXEC), flags & O_CLOEXEC);
  }
  EXPECT_EQ(1, bells);
}

INSTANTIATE_TEST_SUITE_P(signals, every_loop, testing::ValuesIn(LOOPS), loop_name);

// ---- Start-up

class during_start_up : public testing::TestWithParam<Loop>
{
};

TEST_P(during_start_up, a_termination_leads_straight_to_the_shutdown)
{
  Temp_Dir dir;
  Starter_Process starter(with_service(GetParam().args, "gate", "_make_Gate", dir / "open"));
  ASSERT_TRUE(starter.wait_for_record("Gate is closed.")) << starter.log();

  starter.send(SIGTERM);
  ASSERT_TRUE(starter.wait_for_record("caught in [starter].")) << starter.log();
  starter.send(SIGINT);
  ASSERT_TRUE(starter.wait_for_record("caught in [starter].", 2)) << starter.log();
  dir.write("open", "");

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(2u, starter.count("caught in")) << starter.log();
  EXPECT_EQ(1u, starter.count("Gate is open, loop done 1.")) << starter.log(); // the loop was ended before it ran
  EXPECT_EQ(1u, starter.count("Gate is gone.")) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(signals, during_start_up, testing::ValuesIn(LOOPS), loop_name);

TEST(termination, while_the_default_reactor_is_made_is_not_lost)
{
  Start_Options options;
  options.preload = {preload_library("signal_in_socketpair")};

  Starter_Process starter({}, options);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Signal 15 (Terminated) caught in [starter].")) << starter.log();
}

// The termination finds no reactor to end the loop of: the service makes it later.
TEST(termination, before_there_is_a_reactor_ends_the_loop_that_a_service_runs_later)
{
  const Temp_Dir dir;
  Starter_Process starter(with_service({}, "runner", "_make_Runner", dir / "open"));
  ASSERT_TRUE(starter.wait_for_record("Runner comes.")) << starter.log();

  starter.send(SIGTERM);
  ASSERT_TRUE(starter.wait_for_record("caught in [starter].")) << starter.log();
  dir.write("open", "");

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Runner has left the loop.")) << starter.log();
}

TEST_P(during_start_up, a_termination_ends_the_loop_that_a_service_runs_and_that_is_just_about_to_wait)
{
  Start_Options options;
  options.preload = {preload_library("signal_in_wait")};
  Starter_Process starter(with_service(GetParam().args, "runner", "_make_Runner"), options);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Runner has left the loop.")) << starter.log();
}

TEST_P(during_start_up, a_termination_ends_the_loop_that_a_service_runs)
{
  Starter_Process starter(with_service(GetParam().args, "runner", "_make_Runner"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Runner has left the loop.")) << starter.log();
}

// The name of a system call, and its number among the calls of this name in the process, counted from 1.
using Numbered_Call = std::pair<std::string, unsigned>;

// The system calls of the main thread between the last disposition and the last record of the start-up.
static std::vector<Numbered_Call> start_up_calls(const std::vector<std::string>& args)
{
  const Temp_Dir dir;
  Start_Options options;
  options.wrapper = {"strace", "-D", "-s", "200", "-o", dir / "trace"};
  make_traceable(options);
  Starter_Process starter(args, options);
  EXPECT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_TRUE(wait_until([&] { return read_file(dir / "trace").find("+++ exited") != std::string::npos; }));

  std::vector<Numbered_Call> result;
  std::map<std::string, unsigned> counts;
  std::istringstream trace(read_file(dir / "trace"));
  bool has_dispositions = false;
  for (std::string call; std::getline(trace, call) && call.find("is started.") == std::string::npos;) {
    const std::string name = call.substr(0, call.find('('));
    const unsigned count = ++counts[name];
    if (has_dispositions)
      result.emplace_back(name, count);
    has_dispositions = has_dispositions || call.find("rt_sigaction(SIGURG, {sa_handler=SIG_IGN") == 0;
  }
  return result;
}

// Sends the signal together with that call. Returns false when the process did not make the call this time.
static bool serves_signal_with(const Numbered_Call& call, int signo, const std::vector<std::string>& args)
{
  const auto& [name, count] = call;
  const std::string signal = ":signal=" + std::to_string(signo) + ":when=" + std::to_string(count);
  Start_Options options;
  options.wrapper = {"strace", "-D", "-o", "/dev/null", "-e", "trace=" + name, "-e", "inject=" + name + signal};
  make_traceable(options);

  Starter_Process starter(args, options);
  if (starter.wait_for_record("is started.") && starter.count("caught in") == 0)
    return false;

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("caught in [starter]")) << starter.log();
  return true;
}

TEST(start_up, loses_no_signal_that_comes_with_one_of_its_system_calls)
{
  NEEDS(can_trace(), "strace and the right to trace processes");

  for (const std::vector<std::string>& args : {Texts{}, Texts{"--reactor", "tp", "--threads", "4"}}) {
    const std::vector<Numbered_Call> calls = start_up_calls(args);
    std::size_t served = 0;
    for (const int signo : {SIGTERM, SIGSEGV})
      for (const Numbered_Call& call : calls) {
        SCOPED_TRACE(testing::Message() << sigabbrev_np(signo) << " with the call " << call.first << ' '
                                        << call.second);
        served += serves_signal_with(call, signo, args);
      }

    EXPECT_LT(20u, calls.size());
    EXPECT_LT(calls.size(), served); // there are twice as many runs as calls
  }
}

// The framework builds all records of a thread in one buffer.
TEST(start_up, loses_no_record_that_a_signal_interrupts)
{
  const std::pair<int, const char*> cases[] = {{SIGTERM, "Signal 15 (Terminated) caught in [starter].\n"},
                                               {SIGHUP, "Signal 1 (Hangup) caught, and reconfiguring ... \n"},
                                               {SIGUSR2, "Enable ACE::debug.\n"}};

  for (const auto& [signo, text] : cases) {
    SCOPED_TRACE(text);
    Start_Options options = probed();
    options.preload.push_back(preload_library("signal_in_format"));
    options.env["SIGNAL_IN_FORMAT"] = std::to_string(signo);
    Starter_Process starter({"--reactor", "select"}, options);
    ASSERT_TRUE(starter.wait_for_record(text)) << starter.log();
    ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
    if (signo != SIGTERM)
      starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();

    EXPECT_EQ(1u, starter.count(text)) << starter.log();
    const std::vector<Logged> found = records_with(starter, "system info: sysname=Linux, nodename=");
    ASSERT_EQ(1u, found.size()) << starter.log();
    EXPECT_NE(std::string::npos, found[0].text.find(", swappiness=")) << found[0].text;
    EXPECT_EQ(info(found[0].text).in(SOURCE), found[0]);
  }
}

TEST(termination, twice_gives_two_records_and_one_end)
{
  Temp_Dir dir;
  Starter_Process starter(with_service({"--reactor", "select"}, "gate", "_make_Gate", dir / "open"));
  ASSERT_TRUE(starter.wait_for_record("Gate is closed.")) << starter.log();

  starter.send(SIGTERM);
  ASSERT_TRUE(starter.wait_for_record("caught in")) << starter.log();
  starter.send(SIGTERM);
  ASSERT_TRUE(starter.wait_for_record("caught in", 2)) << starter.log();
  dir.write("open", "");

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Gate is gone.")) << starter.log();
}

// The event loop has ended already, so the signal handler has nothing to end.
TEST(termination, after_a_service_has_ended_the_loop_is_only_logged)
{
  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    Starter_Process starter(with_service(loop.args, "raiser", "_make_Raiser", "fini 15"));

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("Raiser is gone.")) << starter.log();
    EXPECT_EQ(1u, starter.count("Signal 15 (Terminated) caught in [starter].")) << starter.log();
  }
}

// ---- The other signals

TEST(user_signal_2, toggles_debug_output)
{
  Starter_Process starter(with_service({}, "talker", "_make_Talker"), probed());
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  starter.send(SIGUSR2);
  ASSERT_TRUE(starter.wait_for_record("Enable ACE::debug.\n")) << starter.log();
  starter.send(SIGUSR2);
  ASSERT_TRUE(starter.wait_for_record("Disable ACE::debug.\n")) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  const std::vector<Logged> found = records_with(starter, "able ACE::debug.");
  ASSERT_EQ(2u, found.size());
  EXPECT_EQ(info("Enable ACE::debug.\n").in(SOURCE), found[0]);
}

TEST(user_signal_2, finds_debugging_on_when_the_command_line_asked_for_it)
{
  Starter_Process starter(with_service({"-d"}, "talker", "_make_Talker"));
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  starter.send(SIGUSR2);

  EXPECT_TRUE(starter.wait_for_record("Disable ACE::debug.\n")) << starter.log();
}

TEST(user_signal_1, kills_as_it_does_by_default)
{
  Starter_Process starter(with_service({}, "talker", "_make_Talker"));
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  starter.send(SIGUSR1);

  EXPECT_EQ(-SIGUSR1, starter.wait_status()) << starter.log();
}

TEST(user_signal_1, stays_ignored_when_the_process_inherits_it_ignored)
{
  Start_Options options;
  options.wrapper = {"/usr/bin/env", "--ignore-signal=USR1"};
  Starter_Process starter(with_service({}, "talker", "_make_Talker"), options);
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  starter.send(SIGUSR1);
  starter.send(SIGUSR2); // this signal is served after the first one
  ASSERT_TRUE(starter.wait_for_record("Enable ACE::debug.")) << starter.log();
  EXPECT_TRUE(starter.is_running());
}

TEST(ignored_signals, change_nothing)
{
  Starter_Process starter(with_service({}, "talker", "_make_Talker"));
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  for (const int signo : IGNORED)
    starter.send(signo);
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("Signal ")) << starter.log();
}

// ---- The hang-up signal and the configurator's own

TEST(configurator_signal, keeps_the_disposition_that_the_configurator_gives_it)
{
  Starter_Process starter(with_service({"-s", "10"}, "talker", "_make_Talker"));
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  starter.send(SIGUSR1);
  starter.send(SIGHUP);

  ASSERT_TRUE(starter.wait_for_record("Signal 1 (Hangup) caught, and reconfiguring ...")) << starter.log();
  EXPECT_TRUE(starter.is_running());
  EXPECT_EQ(0u, starter.count("Signal 10")) << starter.log();
}

TEST(configurator_signal, may_be_the_hang_up_and_then_reloads_nothing)
{
  Starter_Process starter(with_service({"-s", "1"}, "talker", "_make_Talker"));
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

  starter.send(SIGHUP);
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(0u, starter.count("reconfiguring")) << starter.log();
}

// ---- Thread names

TEST(thread_name, of_15_characters_is_shown_whole)
{
  Starter_Process starter(with_service({}, "named", "_make_Named", "fifteen_letters"));
  ASSERT_TRUE(starter.wait_for_record("Thread is named.")) << starter.log();

  starter.send_to_thread(starter.threads().back(), SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("caught in [fifteen_letters].")) << starter.log();
}

TEST(thread_name, is_unknown_to_a_c_library_without_the_function_for_it)
{
  Start_Options options;
  options.preload = {preload_library("no_thread_name")};

  for (const int signo : {SIGTERM, SIGSEGV}) {
    SCOPED_TRACE(strsignal(signo));
    Starter_Process starter(with_service({}, "talker", "_make_Talker"), options);
    ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();

    starter.send(signo);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("caught in [unknown]")) << starter.log();
  }
}
