#include "tests/support/starter_process.h"
#include "tests/support/systemd_fixture.h"
#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <string>

// The program runs under systemd with a watchdog, and has a service that stalls the loop on command.
// The parameter is the client library, empty for the one that is found without a name.
class systemd_boot : public Systemd_Fixture, public testing::WithParamInterface<std::string>
{
protected:
  systemd_boot() : Systemd_Fixture("test.service") {}

  // Boots the machine with the unit. `settings` are lines of its section [Service].
  void boot(const std::string& settings, const std::string& arguments)
  {
    machine_.dir().write("svc.conf", staller_directive());
    machine_.dir().write("held.conf", staller_directive(" held"));

    const std::string library = "Environment=LIBSYSTEMD_FILENAME=" + public_path(GetParam()) + '\n';
    std::string unit = "[Unit]\nDefaultDependencies=no\n[Service]\nType=notify\n" + library + settings;
    unit += test_settings();
    unit += "ExecStart=" + starter_executable() + ' ' + arguments + '\n';
    unit += "ExecReload=/bin/kill -HUP $MAINPID\n";
    machine_.add_unit("test.service", unit);
    ASSERT_TRUE(machine_.boot());
  }

  std::string conf(const std::string& name) const { return "-f " + machine_.dir() / name; }
};

INSTANTIATE_TEST_SUITE_P(, systemd_boot, testing::Values("", TESTS_NOTIFY_LIBRARY),
                         [](const auto& library) { return library.param.empty() ? "of_systemd" : "of_starter"; });

TEST_P(systemd_boot, makes_the_unit_active_when_readiness_is_reported_and_not_before)
{
  boot("WatchdogSec=30\n", conf("held.conf"));
  ASSERT_TRUE(machine_.succeeds("systemctl start --no-block test.service"));

  ASSERT_TRUE(wait_for_record("The staller holds the start."));
  EXPECT_EQ("activating", show("ActiveState"));

  tell_staller('g');
  EXPECT_TRUE(wait_for("ActiveState", "active"));
  EXPECT_TRUE(wait_for_record("<6>Notify systemd every 10000 ms.\n"));
  EXPECT_TRUE(wait_for_record(") is started.\n"));
}

TEST_P(systemd_boot, gives_up_a_unit_that_does_not_report_readiness)
{
  boot("WatchdogSec=30\nEnvironment=LIBSYSTEMD_FILENAME=0\nTimeoutStartSec=2\n", conf("svc.conf"));

  EXPECT_FALSE(machine_.succeeds("systemctl start test.service 2>/dev/null"));
  EXPECT_EQ("timeout", show("Result"));
  EXPECT_NE(std::string::npos, log().find(") is started.\n"));
}

// Systemd ends the start before the program runs, so there is no record.
TEST_P(systemd_boot, does_not_start_a_unit_whose_user_does_not_exist)
{
  boot("WatchdogSec=30\nUser=nobody_at_all\n", conf("svc.conf"));

  EXPECT_FALSE(machine_.succeeds("systemctl start test.service 2>/dev/null"));
  EXPECT_EQ("217", show("ExecMainStatus"));
  EXPECT_EQ("", log());
}

TEST_P(systemd_boot, gives_up_a_unit_without_a_watchdog)
{
  boot("TimeoutStartSec=2\n", conf("svc.conf"));

  EXPECT_FALSE(machine_.succeeds("systemctl start test.service 2>/dev/null"));
  EXPECT_EQ("timeout", show("Result"));
  EXPECT_NE(std::string::npos, log().find("systemd watchdog is not enabled.\n"));
}

TEST_P(systemd_boot, keeps_the_unit_active_over_several_watchdog_periods)
{
  boot("WatchdogSec=3\nEnvironment=SD_NOTIFY_INTERVAL=1\nRestart=always\n",
       "--reactor tp --threads 2 " + conf("svc.conf"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  const std::string pid = show("MainPID");

  EXPECT_TRUE(wait_for_keep_alives(9));

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ("0", show("NRestarts"));
  EXPECT_EQ(pid, show("MainPID"));
}

TEST_P(systemd_boot, kills_and_restarts_a_service_that_stalls_the_loop)
{
  boot("WatchdogSec=3\nEnvironment=SD_NOTIFY_INTERVAL=1\nRestart=on-watchdog\n", conf("svc.conf"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  const std::string pid = show("MainPID");

  tell_staller('s');

  ASSERT_TRUE(wait_for("NRestarts", "1"));
  EXPECT_TRUE(wait_for("ActiveState", "active"));
  EXPECT_NE(pid, show("MainPID"));
  EXPECT_NE(std::string::npos, machine_.console().find("Watchdog timeout"));
  EXPECT_NE(std::string::npos, log().find("The loop is stalled.\n"));
  EXPECT_NE(std::string::npos, log().find("Signal 6 (Aborted) caught"));
  EXPECT_TRUE(wait_for_keep_alives(2)) << "the new process is not fed";
}

TEST_P(systemd_boot, reloads_the_service_without_losing_a_thread)
{
  boot("WatchdogSec=3\nEnvironment=SD_NOTIFY_INTERVAL=1\nRestart=always\n",
       "--reactor tp --threads 3 " + conf("svc.conf"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  const std::string pid = show("MainPID");
  ASSERT_TRUE(wait_until([&] { return threads() == "4"; })) << threads();

  EXPECT_TRUE(machine_.succeeds("systemctl reload test.service"));

  EXPECT_TRUE(wait_for_record("Signal 1 (Hangup) caught, and reconfiguring ... \n"));
  EXPECT_TRUE(wait_for_record("The staller is gone.\nThe staller is there.\n"));
  EXPECT_TRUE(wait_for_keep_alives(2));
  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ(pid, show("MainPID"));
  EXPECT_EQ("4", threads());
}

TEST_P(systemd_boot, stops_the_service_in_order)
{
  boot("WatchdogSec=30\nRestart=always\n", "--reactor tp --threads 2 " + conf("svc.conf"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  ASSERT_TRUE(wait_for_record(") is started.\n"));

  EXPECT_TRUE(machine_.succeeds("systemctl stop test.service"));

  EXPECT_EQ("inactive", show("ActiveState"));
  EXPECT_EQ("success", show("Result"));
  EXPECT_EQ("1", show("ExecMainCode")) << "CLD_EXITED";
  EXPECT_EQ("0", show("ExecMainStatus"));
  EXPECT_NE(std::string::npos, log().find("Signal 15 (Terminated) caught in [starter].\nThe staller is gone.\n"));
}
