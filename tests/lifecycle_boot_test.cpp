// The companion "lifecycle" under the real systemd, in a machine of its own. STARTER_STRESS_COUNT raises the number of
// reloads and the times: 500 makes a fini of 60 seconds.

#include "tests/support/companions.h"
#include "tests/support/starter_process.h"
#include "tests/support/stress.h"
#include "tests/support/systemd_fixture.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;

namespace
{
class lifecycle_boot : public Systemd_Fixture
{
protected:
  lifecycle_boot() : Systemd_Fixture("test.service") {}

  // Boots the machine with a unit that loads the companion, and then what `directives` name. `settings` are lines of
  // its section [Service].
  void boot(const std::string& directives, const std::string& settings = "", const std::string& arguments = "",
            const char* params = "-p 1")
  {
    machine_.dir().write("x.conf", companion_directive("lifecycle", params) + directives);
    std::string unit = "[Unit]\nDefaultDependencies=no\n[Service]\nType=notify\nWatchdogSec=30\n";
    unit += settings + test_settings() + "ExecStart=" + starter_executable() + ' ' + arguments;
    unit += " -f " + machine_.dir() / "x.conf" + "\nExecReload=/bin/kill -HUP $MAINPID\n";
    machine_.add_unit("test.service", unit);
    ASSERT_TRUE(machine_.boot());
  }

  static std::string lingerer(const std::string& how)
  {
    return dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", how);
  }

  static std::string talker() { return dynamic_directive("Talker", "talker", "_make_Talker"); }

  // Reload, and wait until the unit is active again.
  bool reload() const
  {
    const std::size_t before = count_in_log("talker init.");
    return machine_.succeeds("systemctl reload test.service") &&
           wait_until([&] { return count_in_log("talker init.") > before; }) && wait_for("ActiveState", "active");
  }

  std::size_t count_in_log(const std::string& part) const
  {
    const std::string text = log();
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
      ++count;
    return count;
  }

  // The states that systemd has got notifications of. They stand in its debugging messages.
  std::vector<std::string> notified_states() const
  {
    static const std::regex message("Got notification message from PID [0-9]+ \\((RELOADING|READY|STOPPING)=1");
    const std::string text = machine_.console();
    std::vector<std::string> found;
    for (std::sregex_iterator i(text.begin(), text.end(), message); i != std::sregex_iterator(); ++i)
      found.push_back((*i)[1]);
    return found;
  }
};
} // namespace

TEST_F(lifecycle_boot, tells_systemd_of_the_start_of_three_reloads_and_of_the_stop_in_order)
{
  ASSERT_NO_FATAL_FAILURE(boot(talker(), "", "--reactor tp --threads 2"));
  ASSERT_TRUE(machine_.succeeds("systemctl log-level debug && systemctl start test.service"));
  EXPECT_TRUE(wait_until([&] {
    return machine_.run("systemctl status test.service")
               .find("Status: \"running; reactor: tp; threads: 2; services: 2; reloads: 0; last failure: none\"") !=
           std::string::npos;
  })) << machine_.run("systemctl status test.service");

  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(reload());
  EXPECT_TRUE(wait_until([&] { return show("StatusText").find("running; ") == 0; }));
  EXPECT_THAT(show("StatusText"), HasSubstr("; reloads: 3; "));
  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));

  EXPECT_EQ("success", show("Result"));
  EXPECT_THAT(notified_states(),
              ElementsAre("READY", "RELOADING", "READY", "RELOADING", "READY", "RELOADING", "READY", "STOPPING"));
}

TEST_F(lifecycle_boot, is_active_after_every_reload)
{
  ASSERT_NO_FATAL_FAILURE(boot(talker()));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  const std::string pid = show("MainPID");

  for (int i = 0; i < stress_count(); ++i)
    ASSERT_TRUE(reload()) << i << ": " << show("ActiveState");
  EXPECT_EQ(pid, show("MainPID"));
  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));
  EXPECT_EQ("success", show("Result"));
}

TEST_F(lifecycle_boot, is_reloading_as_long_as_a_reload_takes_and_is_stopped_in_the_middle)
{
  ASSERT_NO_FATAL_FAILURE(boot(lingerer("reload work 1500")));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));

  ASSERT_TRUE(machine_.succeeds("systemctl reload --no-block test.service"));
  ASSERT_TRUE(wait_for_record("linger reload.\n"));
  EXPECT_EQ("reloading", show("ActiveState"));
  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));

  EXPECT_EQ("inactive", show("ActiveState"));
  EXPECT_EQ("success", show("Result"));
  EXPECT_THAT(log(), HasSubstr("lingered reload.\n"));
}

TEST_F(lifecycle_boot, stops_the_unit_when_the_process_gets_a_termination_of_its_own)
{
  ASSERT_NO_FATAL_FAILURE(boot(lingerer("fini hang"), "TimeoutStopSec=60\n"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service && kill -TERM $(systemctl show --value -p MainPID "
                                "test.service)"));

  EXPECT_TRUE(wait_for("ActiveState", "deactivating"));
  EXPECT_TRUE(wait_until([&] { return show("StatusText").find("stopping; ") == 0; })) << show("StatusText");
}

// The times are an eighth of a second for each run of a stress test, beyond those of the unit.
TEST_F(lifecycle_boot, is_not_killed_while_a_start_or_a_stop_makes_progress)
{
  const std::string msec = std::to_string(2500 + 120 * (stress_count() - 20));
  ASSERT_NO_FATAL_FAILURE(
      boot(lingerer("init work " + msec) + dynamic_directive("Last", "lingerer", "_make_Lingerer", "fini work " + msec),
           "TimeoutStartSec=1\nTimeoutStopSec=1\n"));

  EXPECT_TRUE(machine_.succeeds("systemctl start test.service"));
  EXPECT_TRUE(machine_.succeeds("systemctl stop test.service"));

  EXPECT_EQ("success", show("Result"));
  EXPECT_THAT(log(), HasSubstr("lingered init.\n"));
  EXPECT_THAT(log(), HasSubstr("lingered fini.\n"));
}

TEST_F(lifecycle_boot, is_killed_when_a_stop_hangs)
{
  ASSERT_NO_FATAL_FAILURE(boot(lingerer("fini hang"), "TimeoutStopSec=1\n"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));

  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));

  EXPECT_EQ("timeout", show("Result"));
  EXPECT_THAT(log(), HasSubstr("linger fini.\n"));
}

TEST_F(lifecycle_boot, is_killed_when_a_stop_takes_longer_than_the_limit)
{
  ASSERT_NO_FATAL_FAILURE(boot(lingerer("fini work 100000"), "TimeoutStopSec=1\n", "", "-l 2 -p 1"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));

  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));

  EXPECT_EQ("timeout", show("Result"));
  EXPECT_EQ(std::string::npos, log().find("lingered fini.\n"));
}
