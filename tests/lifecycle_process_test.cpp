// The companion "lifecycle" in the program, with a socket of the test in place of systemd's. lifecycle_boot_test has
// the real one. STARTER_STRESS_COUNT sets the number of signals of each kind, as in signal_stress_test.

#include "tests/support/companions.h"
#include "tests/support/fake_notify_socket.h"
#include "tests/support/fake_systemd.h"
#include "tests/support/loops.h"
#include "tests/support/stress.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;

using Texts = std::vector<std::string>;

namespace
{
// The program runs with a watchdog, so that it reports readiness itself when its services are loaded.
class lifecycle : public testing::Test
{
protected:
  lifecycle()
  {
    options_.env["NOTIFY_SOCKET"] = path();
    options_.env["LIBSYSTEMD_FILENAME"] = fake_library();
    options_.env["WATCHDOG_USEC"] = "300000000";
  }

  std::string path() const { return dir_ / "notify"; }

  // The arguments that load the companion first, and then what `directives` name.
  Texts loaded_before(const std::string& directives, Texts args = {}, const char* params = "") const
  {
    configure(companion_directive("lifecycle", params) + directives);
    args.insert(args.end(), {"-f", dir_ / "x.conf"});
    return args;
  }

  void configure(const std::string& directives) const { dir_.write("x.conf", directives); }

  static std::string talker() { return dynamic_directive("Talker", "talker", "_make_Talker"); }

  static std::string lingerer(const std::string& how)
  {
    return dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", how);
  }

  static void end(Starter_Process& starter)
  {
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();
  }

  Temp_Dir dir_;
  Start_Options options_;
};

class lifecycle_of_each_loop : public lifecycle, public testing::WithParamInterface<Loop>
{
};

long long monotonic_usec()
{
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}
} // namespace

// ---- The order of notifications

// The states that systemd is told of, each one once: a stop comes with each request for more time, and again if it came
// together with another message.
static Texts changes_told_to(Fake_Notify_Socket& systemd)
{
  Texts states = systemd.states();
  states.erase(std::unique(states.begin(), states.end()), states.end());
  return states;
}

TEST_P(lifecycle_of_each_loop, tells_of_the_start_of_three_reloads_and_of_the_stop_in_order)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(talker(), GetParam().args), options_);
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();

  for (unsigned i = 1; i <= 3; ++i) {
    starter.send(SIGHUP);
    ASSERT_TRUE(systemd.wait_for("READY=1", i + 1)) << starter.log();
    EXPECT_EQ(i + 1, starter.count("talker init.")) << "ready before the services are up";
    ASSERT_TRUE(GetParam().threads == 1 || starter.wait_for_event_loop());
  }
  end(starter);

  EXPECT_THAT(changes_told_to(systemd),
              ElementsAre("READY", "RELOADING", "READY", "RELOADING", "READY", "RELOADING", "READY", "STOPPING"));
}

TEST_P(lifecycle_of_each_loop, tells_of_the_stop_before_the_first_service_ends)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("fini hang"), GetParam().args), options_);
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();

  starter.send(SIGTERM);

  ASSERT_TRUE(starter.wait_for_record("linger fini.")) << starter.log();
  EXPECT_TRUE(systemd.wait_for("STOPPING=1"));
  EXPECT_TRUE(systemd.wait_for("STATUS=stopping;"));
}

TEST_P(lifecycle_of_each_loop, tells_of_a_reload_before_the_services_end)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("reload hang"), GetParam().args), options_);
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();

  starter.send(SIGHUP);

  ASSERT_TRUE(starter.wait_for_record("linger reload.")) << starter.log();
  ASSERT_TRUE(systemd.wait_for("STATUS=reloading;"));
  EXPECT_THAT(systemd.states(), ElementsAre("READY", "RELOADING"));
}

TEST_P(lifecycle_of_each_loop, tells_of_a_stop_when_a_termination_comes_during_a_reload)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("reload work 200"), GetParam().args), options_);
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();

  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("linger reload.")) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_THAT(changes_told_to(systemd), ElementsAre("READY", "RELOADING", "STOPPING"));
}

TEST_P(lifecycle_of_each_loop, tells_of_a_reload_that_waited_for_the_start_when_the_program_is_ready)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("init work 100"), GetParam().args), options_);
  ASSERT_TRUE(starter.wait_for_record("linger init.")) << starter.log();

  starter.send(SIGHUP);

  ASSERT_TRUE(systemd.wait_for("READY=1", 2)) << starter.log();
  EXPECT_EQ(2u, starter.count("lingered init."));
  end(starter);
  EXPECT_THAT(changes_told_to(systemd), ElementsAre("READY", "RELOADING", "READY", "STOPPING"));
}

TEST_P(lifecycle_of_each_loop, tells_of_a_stop_when_a_termination_comes_during_the_start)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("init work 100"), GetParam().args), options_);
  ASSERT_TRUE(starter.wait_for_record("linger init.")) << starter.log();

  end(starter);

  EXPECT_THAT(changes_told_to(systemd), ElementsAre("STOPPING", "READY", "STOPPING"));
}

TEST_P(lifecycle_of_each_loop, is_ready_again_when_a_reload_is_refused)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(talker(), GetParam().args), options_);
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();
  ASSERT_TRUE(systemd.wait_for("STATUS=running;")); // the start is over
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::string conf = dir_ / "x.conf";
  ASSERT_EQ(0, unlink(conf.c_str()));
  ASSERT_EQ(0, mkdir(conf.c_str(), 0700)); // it opens well and cannot be read

  starter.send(SIGHUP);

  ASSERT_TRUE(systemd.wait_for("READY=1", 2)) << starter.log();
  EXPECT_TRUE(wait_until([&] {
    return systemd.values_of("STATUS=").back().find("last failure: Failed to read " + conf) != std::string::npos;
  }));
  EXPECT_THAT(systemd.values_of("STATUS=").back(), HasSubstr("running; reactor: "));
  EXPECT_THAT(systemd.values_of("STATUS=").back(), HasSubstr("; reloads: 0; "));
  EXPECT_EQ(0u, starter.count("talker fini."));
  end(starter);
  EXPECT_THAT(changes_told_to(systemd), ElementsAre("READY", "RELOADING", "READY", "STOPPING"));
}

INSTANTIATE_TEST_SUITE_P(loops, lifecycle_of_each_loop, testing::ValuesIn(LOOPS), loop_name);

TEST_F(lifecycle, is_told_the_time_at_which_a_reload_begins)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(talker()), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  const long long before = monotonic_usec();
  starter.send(SIGHUP);
  ASSERT_TRUE(systemd.wait_for("RELOADING=1"));
  const long long after = monotonic_usec();

  const Texts times = systemd.values_of("RELOADING=1\nMONOTONIC_USEC=");
  ASSERT_EQ(1u, times.size());
  EXPECT_LE(before, std::stoll(times[0]));
  EXPECT_GE(after, std::stoll(times[0]));
}

TEST_F(lifecycle, is_told_at_once_of_a_reload_that_a_callback_keeps_waiting)
{
  Fake_Notify_Socket systemd(path());
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  Starter_Process starter(loaded_before(dynamic_directive("Staller", "staller", "_make_Staller", fifo)), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const int fd = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(1, write(fd, "s", 1));
  ASSERT_TRUE(starter.wait_for_record("The loop is stalled."));

  starter.send(SIGHUP);

  EXPECT_TRUE(systemd.wait_for("RELOADING=1"));
  EXPECT_EQ(0u, starter.count("The staller is gone."));
  EXPECT_TRUE(systemd.wait_for("READY=1", 2)); // the program interrupts the callback
  EXPECT_EQ(1u, starter.count("The staller is gone."));
  close(fd);
}

TEST_F(lifecycle, is_told_of_a_hang_up_that_another_thread_takes)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(talker(), {"--reactor", "tp", "--threads", "3"}), options_);
  ASSERT_TRUE(starter.wait_for_event_loop() && starter.wait_for_threads(5)) << starter.log();

  for (unsigned i = 0; i < 3; ++i) {
    starter.send_to_thread(starter.threads().back(), SIGHUP);
    ASSERT_TRUE(systemd.wait_for("READY=1", i + 2)) << starter.log();
  }
  end(starter);
  EXPECT_THAT(changes_told_to(systemd),
              ElementsAre("READY", "RELOADING", "READY", "RELOADING", "READY", "RELOADING", "READY", "STOPPING"));
}

// ---- The status line

TEST_F(lifecycle, has_a_status_line)
{
  const std::tuple<Texts, std::string> cases[] = {
      {Texts{}, "reactor: select; threads: 1"},
      {{"--reactor", "select", "--threads", "3"}, "reactor: select; threads: 1"},
      {{"--reactor", "tp", "--threads", "3"}, "reactor: tp; threads: 3"},
      {{"--reactor", "dev_poll"}, "reactor: dev_poll; threads: 1"},
      {{"--reactor", "dev_poll", "--threads", "2"}, "reactor: dev_poll; threads: 2"},
      {{"--reactor", "priority"}, "reactor: priority; threads: 1"},
  };
  for (const auto& [args, reactor] : cases) {
    SCOPED_TRACE(reactor);
    Fake_Notify_Socket systemd(path());
    Starter_Process starter(loaded_before(talker(), args), options_);
    const std::string started = "STATUS=running; " + reactor + "; services: 2; reloads: 0; last failure: none";
    ASSERT_TRUE(systemd.wait_for(started)) << testing::PrintToString(systemd.messages());

    ASSERT_TRUE(starter.wait_for_event_loop());
    starter.send(SIGHUP);
    const std::string reloaded = "STATUS=running; " + reactor + "; services: 2; reloads: 1; last failure: none";
    ASSERT_TRUE(systemd.wait_for(reloaded)) << testing::PrintToString(systemd.messages());
    end(starter);
    EXPECT_EQ("stopping; " + reactor + "; services: 2; reloads: 1; last failure: none",
              systemd.values_of("STATUS=").back());
  }
}

TEST_F(lifecycle, shows_why_a_service_is_missing)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(companion_directive("journal", "-e some")), options_);
  ASSERT_TRUE(systemd.wait_for("STATUS=running;")) << starter.log();

  EXPECT_THAT(systemd.values_of("STATUS=").back(),
              HasSubstr("services: 1; reloads: 0; last failure: Failed to start the journal: -e takes lost, all or "
                        "none, and not 'some'"));
}

// ---- More time

TEST_F(lifecycle, asks_for_more_time_while_a_start_a_reload_and_a_stop_work)
{
  for (const std::string when : {"init", "reload", "fini"}) {
    SCOPED_TRACE(when);
    Fake_Notify_Socket systemd(path());
    Starter_Process starter(loaded_before(lingerer(when + " work 3000"), {}, "-p 7"), options_);
    ASSERT_TRUE(systemd.wait_for("STATUS=running;")) << starter.log();
    if (when == "reload") {
      ASSERT_TRUE(starter.wait_for_event_loop());
      starter.send(SIGHUP);
      ASSERT_TRUE(systemd.wait_for("READY=1", 2));
    }
    end(starter);

    const Texts extensions = systemd.values_of("EXTEND_TIMEOUT_USEC=");
    ASSERT_LE(1u, extensions.size()) << testing::PrintToString(systemd.messages());
    EXPECT_EQ("7000000", extensions[0]);
  }
}

TEST_F(lifecycle, asks_for_no_more_than_the_limit)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("fini work 3000"), {}, "-l 2 -p 60"), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  end(starter);

  const Texts extensions = systemd.values_of("EXTEND_TIMEOUT_USEC=");
  ASSERT_LE(1u, extensions.size());
  for (std::size_t i = 0; i < extensions.size(); ++i)
    EXPECT_GT(i == 0 ? 2000000 : std::stol(extensions[i - 1]), std::stol(extensions[i]));
}

TEST_F(lifecycle, asks_for_no_time_at_all_with_a_limit_of_zero)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(lingerer("fini work 1000"), {}, "-l 0"), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  end(starter);

  for (const std::string& message : systemd.messages())
    EXPECT_EQ(std::string::npos, message.find("EXTEND")) << message;
}

// ---- Unusual circumstances

TEST_F(lifecycle, sends_a_state_again_that_systemd_does_not_take_at_once)
{
  Fake_Notify_Socket systemd(path(), true);
  options_.env["LIBSYSTEMD_FILENAME"] = "0"; // the program would wait for systemd
  Starter_Process starter(loaded_before(talker()), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  for (unsigned i = 1; i <= 50; ++i) {
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", i + 1)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop());
  }

  systemd.serve();

  EXPECT_TRUE(wait_until([&] { return systemd.states().back() == "READY"; }));
  EXPECT_THAT(systemd.states(), testing::SizeIs(testing::Lt(100u))) << "nothing was held up";
  EXPECT_TRUE(wait_until([&] {
    const Texts lines = systemd.values_of("STATUS=running;");
    return !lines.empty() && lines.back().find("; reloads: 50; ") != std::string::npos;
  })) << testing::PrintToString(systemd.messages());
  end(starter);
  EXPECT_EQ("STOPPING", systemd.states().back());
}

TEST_F(lifecycle, sends_to_an_abstract_address)
{
  const std::string address = '@' + path();
  Fake_Notify_Socket systemd(address);
  options_.env["NOTIFY_SOCKET"] = address;
  Starter_Process starter(loaded_before(talker()), options_);

  EXPECT_TRUE(systemd.wait_for("STATUS=running;")) << starter.log();
}

TEST_F(lifecycle, costs_nothing_where_nobody_wants_to_know)
{
  for (const char* const address : {"", "unset"}) {
    options_.env["NOTIFY_SOCKET"] = address;
    if (*address)
      options_.env.erase("NOTIFY_SOCKET");
    Starter_Process starter(loaded_before(talker()), options_);
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_EQ(1u, starter.threads().size());
    end(starter);
  }
}

TEST_F(lifecycle, ends_with_the_reload_that_removes_it)
{
  for (const std::string& change : {std::string("remove Lifecycle\n"), companion_directive("lifecycle", "-l never")}) {
    SCOPED_TRACE(change);
    Fake_Notify_Socket systemd(path());
    Starter_Process starter(loaded_before(talker()), options_);
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    configure(change + talker());

    starter.send(SIGHUP);
    ASSERT_TRUE(systemd.wait_for("READY=1", 2)) << starter.log();
    ASSERT_TRUE(starter.wait_for_threads(1));

    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", 3)) << starter.log();
    end(starter);
    EXPECT_THAT(systemd.states(), ElementsAre("READY", "RELOADING", "READY"));
  }
}

TEST_F(lifecycle, comes_back_with_a_later_reload)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(loaded_before(talker()), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  configure("remove Lifecycle\n" + talker());
  starter.send(SIGHUP);
  ASSERT_TRUE(systemd.wait_for("READY=1", 2)) << starter.log();
  ASSERT_TRUE(starter.wait_for_threads(1));

  configure(companion_directive("lifecycle") + talker());
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_threads(2));
  ASSERT_TRUE(starter.wait_for_record("talker init.", 3)) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop());
  starter.send(SIGHUP);
  ASSERT_TRUE(systemd.wait_for("READY=1", 3)) << starter.log();
  end(starter);

  EXPECT_THAT(changes_told_to(systemd), ElementsAre("READY", "RELOADING", "READY", "RELOADING", "READY", "STOPPING"));
}

TEST_F(lifecycle, is_not_begun_twice)
{
  Fake_Notify_Socket systemd(path());
  const std::string second =
      std::string(companion_directive("lifecycle"))
          .replace(companion_directive("lifecycle").rfind("dynamic Lifecycle"), 17, "dynamic Other");
  Starter_Process starter(loaded_before(second), options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  EXPECT_EQ(1u, starter.count("Failed to start the lifecycle at " + path() + ", errno=114, "));
  starter.send(SIGHUP);
  EXPECT_TRUE(systemd.wait_for("READY=1", 2));
  end(starter);
  EXPECT_THAT(changes_told_to(systemd), ElementsAre("READY", "RELOADING", "READY", "STOPPING"));
}

TEST_F(lifecycle, refuses_wrong_arguments_with_one_error_record)
{
  const std::tuple<const char*, const char*> cases[] = {
      {"-l", "-l needs a value"},
      {"-l -1", "-l takes seconds from 0 to 86400, and not '-1'"},
      {"-p 1s", "-p takes seconds from 0 to 86400, and not '1s'"},
      {"-p 86401", "-p takes seconds from 0 to 86400, and not '86401'"},
      {"5", "'5' is no option"},
  };
  for (const auto& [params, reason] : cases) {
    SCOPED_TRACE(params);
    Starter_Process starter(loaded_before("", {}, params), options_);
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_EQ(1u, starter.count(std::string("Failed to start the lifecycle: ") + reason + '\n')) << starter.log();
    EXPECT_EQ(1u, starter.count("Failed to start")) << starter.log();
  }
}

// ---- Many signals

namespace
{
using Stress_Case = std::tuple<Loop, Load>;

class lifecycle_stress : public lifecycle, public Stress, public testing::WithParamInterface<Stress_Case>
{
protected:
  Texts make_args() const
  {
    const auto& [loop, load] = GetParam();
    std::string directives = talker();
    if (load.bytes != 0)
      directives += dynamic_directive("Busy", "busy", "_make_Busy", std::to_string(load.bytes));
    return loaded_before(directives, loop.args);
  }
};

std::vector<Loop> some_loops()
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    for (const std::string name : {"default", "tp_4", "dev_poll", "dev_poll_2"})
      if (loop.name == name)
        loops.push_back(loop);
  return loops;
}

std::string stress_name(const testing::TestParamInfo<Stress_Case>& info)
{
  return std::get<Loop>(info.param).name + std::string("_") + std::get<Load>(info.param).name;
}
} // namespace

static Texts last_of(const Texts& texts)
{
  return Texts(texts.end() - std::min<std::ptrdiff_t>(30, texts.end() - texts.begin()), texts.end());
}

// Several hang-ups may make one reload.
TEST_P(lifecycle_stress, is_never_left_in_a_reload)
{
  Fake_Notify_Socket systemd(path());
  Starter_Process starter(make_args(), options_);
  ASSERT_TRUE(std::get<Loop>(GetParam()).threads == 1 || starter.wait_for_event_loop()) << starter.log();
  ASSERT_TRUE(systemd.wait_for("STATUS=running;"));

  for (int i = 0; i < count_; ++i) {
    starter.send(SIGHUP);
    starter.forget_log(); // a full pipe would stop the program
    pass_time(up_to(i % 2 == 0 ? 500 : 5000));
  }
  EXPECT_TRUE(wait_until([&] {
    const Texts states = systemd.states();
    const auto count = [&](const char* state) { return std::count(states.begin(), states.end(), state); };
    return states.back() == "READY" && count("RELOADING") >= 1;
  })) << testing::PrintToString(last_of(systemd.messages()))
      << starter.log();
  end(starter);
  EXPECT_EQ("STOPPING", systemd.states().back());
}

TEST_P(lifecycle_stress, stops_after_a_termination_at_any_moment)
{
  const Texts args = make_args();
  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    Fake_Notify_Socket systemd(path());
    Starter_Process starter(args, options_);
    ASSERT_TRUE(wait_for_dispositions(starter)) << starter.log();

    pass_time(up_to(8000));
    if (i % 2 == 0)
      starter.send(SIGHUP);
    starter.send(SIGTERM);

    ASSERT_EQ(0, starter.wait_status()) << starter.log();
    ASSERT_TRUE(systemd.states().empty() || systemd.states().back() == "STOPPING" ||
                systemd.states().back() == "READY");
    if (!systemd.values_of("STATUS=").empty()) {
      ASSERT_EQ("STOPPING", systemd.states().back()) << testing::PrintToString(systemd.messages()) << starter.log();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(loops, lifecycle_stress,
                         testing::Combine(testing::ValuesIn(some_loops()), testing::ValuesIn(LOADS)), stress_name);
