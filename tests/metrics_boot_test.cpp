// The companion "metrics" under the real systemd, in a machine of its own, with the restrictions of the unit template
// that it could meet: it has a thread of its own, and sockets.

#include "tests/support/companions.h"
#include "tests/support/scrape.h"
#include "tests/support/starter_process.h"
#include "tests/support/systemd_fixture.h"
#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

namespace
{
class metrics_boot : public Systemd_Fixture
{
protected:
  metrics_boot() : Systemd_Fixture("test.service") {}

  // Those lines of the template that restrict what a process may call.
  static std::string restrictions()
  {
    std::istringstream lines(read_file(TESTS_UNIT_TEMPLATE));
    std::string found;
    for (std::string line; std::getline(lines, line);)
      for (const char* const name : {"Restrict", "SystemCall", "MemoryDeny", "LockPersonality", "NoNewPrivileges",
                                     "CapabilityBoundingSet", "Environment=MALLOC_ARENA_MAX"})
        found += line.rfind(name, 0) == 0 ? line + '\n' : "";
    return found;
  }

  // Boots the machine with a unit of four loop threads. The test reaches the socket, which is in the directory that it
  // shares with the machine.
  void boot()
  {
    ASSERT_NE(std::string::npos, restrictions().find("RestrictAddressFamilies=")) << restrictions();
    machine_.dir().write("x.conf", companion_directive("metrics", ("-l " + address_).c_str()) + staller_directive() +
                                       dynamic_directive("Counted", "counted", "_make_Counted"));
    std::string unit = "[Unit]\nDefaultDependencies=no\n[Service]\nType=notify\nWatchdogSec=9\n" + restrictions();
    unit += "Environment=COMPONENT=demo\n" + test_settings() + "ExecStart=" + starter_executable() +
            " --reactor dev_poll --threads 4 -f " + machine_.dir() / "x.conf" +
            "\nExecReload=/bin/kill -HUP $MAINPID\n";
    machine_.add_unit("test.service", unit);
    ASSERT_TRUE(machine_.boot());
    ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  }

  bool wait_for_value(const std::string& series, double value) const
  {
    return wait_until([&] { return value_of(scrape(address_), series) == value; });
  }

  const std::string path_ = machine_.dir() / "metrics";
  const std::string address_ = "unix:" + path_;
};
} // namespace

TEST_F(metrics_boot, are_served_over_reloads_and_while_a_thread_hangs)
{
  ASSERT_NO_FATAL_FAILURE(boot());
  ASSERT_TRUE(wait_until([&] {
    return scrape(address_).find("component=\"demo\"") != std::string::npos &&
           scrape(address_).find("threads=\"4\"") != std::string::npos;
  })) << scrape(address_);

  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(machine_.succeeds("systemctl reload test.service"));
    ASSERT_TRUE(wait_for_value("starter_reloads_total", i)) << scrape(address_);
  }
  EXPECT_EQ(3, value_of(scrape(address_), "starter_signals_total{signal=\"SIGHUP\"}"));
  EXPECT_EQ(4, value_of(scrape(address_), "counted_inits_total{kind=\"any\",of=\"all\"}"));

  tell_staller('s');
  EXPECT_TRUE(wait_for_keep_alives(2));
  EXPECT_EQ(3, value_of(scrape(address_), "starter_services{state=\"active\"}"));
  tell_staller('g');

  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));
  EXPECT_EQ("success", show("Result"));
  EXPECT_FALSE(std::filesystem::exists(path_));
}
