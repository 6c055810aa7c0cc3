// The companion "guard" under the real systemd with its journal, in a machine of its own.

#include "tests/support/companions.h"
#include "tests/support/starter_process.h"
#include "tests/support/systemd_fixture.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::HasSubstr;

namespace
{
class guard_boot : public Systemd_Fixture
{
protected:
  guard_boot() : Systemd_Fixture("test.service") {}

  // Boots the machine with a journal, and with a unit of four loop threads. It loads the companion, with the arguments
  // `params`, and the service that stalls a thread on command.
  void boot(const char* params)
  {
    machine_.dir().write("x.conf",
                         companion_directive("journal") + companion_directive("guard", params) + staller_directive());
    std::string unit = "[Unit]\nDefaultDependencies=no\n[Service]\nType=notify\nWatchdogSec=9\nRestart=always\n";
    unit += test_settings() + "ExecStart=" + starter_executable() + " --reactor dev_poll --threads 4 -f " +
            machine_.dir() / "x.conf" + '\n';
    machine_.add_unit("test.service", unit);
    machine_.add_journal();
    ASSERT_TRUE(machine_.boot());
    ASSERT_TRUE(machine_.start_journal());
    ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  }

  // The entries of this priority that the program has sent itself.
  std::string entries(const std::string& priority) const
  {
    return machine_.run("journalctl --no-pager -o cat -a _TRANSPORT=journal -u test.service -p " + priority + ".." +
                        priority + " 2>/dev/null");
  }

  bool wait_for_entry(const std::string& priority, const std::string& text) const
  {
    return wait_until([&] { return entries(priority).find(text) != std::string::npos; });
  }
};
} // namespace

TEST_F(guard_boot, reports_a_thread_that_hangs_while_the_others_feed_the_watchdog)
{
  ASSERT_NO_FATAL_FAILURE(boot("-t 1000"));
  const std::string pid = show("MainPID");

  tell_staller('s');
  ASSERT_TRUE(wait_for_entry("warning", "] has been in one callback for ")) << entries("warning");
  EXPECT_THAT(entries("warning"), HasSubstr("/libstaller.so("));
  EXPECT_TRUE(wait_for_keep_alives(2));
  EXPECT_THAT(entries("info"), testing::Not(HasSubstr("] is back after ")));

  tell_staller('g');
  EXPECT_TRUE(wait_for_entry("info", "] is back after ")) << entries("info");
  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ(pid, show("MainPID"));
  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));
  EXPECT_EQ("success", show("Result"));
}

TEST_F(guard_boot, has_systemd_restart_the_unit_after_a_callback_that_hangs_for_too_long)
{
  ASSERT_NO_FATAL_FAILURE(boot("-t 500 -k 1500"));
  const std::string pid = show("MainPID");

  tell_staller('s');
  ASSERT_TRUE(wait_for_entry("alert", "Signal 6 (Aborted) caught in [")) << entries("alert");
  EXPECT_THAT(entries("alert"), HasSubstr("/libstaller.so("));

  EXPECT_TRUE(wait_for("NRestarts", "1"));
  EXPECT_TRUE(wait_for("ActiveState", "active"));
  EXPECT_NE(pid, show("MainPID"));
  EXPECT_TRUE(wait_for_keep_alives(1));
}
