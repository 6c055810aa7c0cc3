// The test does what the guides tell an operator to do, in the words of the guides: in a machine of its own that
// systemd has booted, with the package as CPack makes it.

#include "tests/support/changeable_system.h"
#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/guide.h"
#include "tests/support/requirements.h"
#include "tests/support/systemd_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

// A machine with the system of this one, in which everything may be changed, and which forgets all of it.
class operators_machine : public testing::Test
{
protected:
  void SetUp() override
  {
    NEEDS(is_root(), "root, for namespaces of its own");
    NEEDS(Systemd_Machine::is_installed(), "systemd");
    NEEDS(has_tool("dbus-daemon"), "dbus, for systemd-run");
    NEEDS(can_overlay(), "the right to mount file systems over others");

    add_system_units(machine_);
    ASSERT_TRUE(machine_.boot()) << machine_.console();

    ASSERT_NO_FATAL_FAILURE(make_changeable(machine_));
    // A container forbids packages to start and stop services; this is a machine.
    must_succeed("rm -rf /usr/sbin/policy-rc.d /etc/starter");
    must_succeed("systemctl start systemd-journald.service dbus.service");

    fs::create_directory(machine_.dir() / "operator");
    for (const char* const package : {"starter", "libscrt-dev"})
      fs::copy(packages_.file(package), machine_.dir() / "operator");
  }

  void TearDown() override
  {
    if (HasFailure())
      std::cerr << "The console:\n" << machine_.console() << '\n';
  }

  // Follows the guide `name`.
  void follow(const std::string& name, unsigned commands)
  {
    const std::vector<Block> blocks = blocks_of(read_file(TESTS_SOURCE_DIR "/" + name));
    const std::string script = machine_.dir().write("script", PACE + script_of(blocks, "shell"));

    const std::string command =
        "cd " + machine_.dir() / "operator" + " && timeout -k 5 120 bash -eu " + script + " 2>&1 || echo failed";
    const std::string output = machine_.run(command);

    EXPECT_THAT(output, testing::Not(testing::EndsWith("failed"))) << output;
    EXPECT_EQ(commands, expect_promised_output(blocks, "shell", output));
  }

  void must_succeed(const std::string& command) const
  {
    ASSERT_TRUE(machine_.succeeds(command)) << command << '\n' << machine_.console();
  }

  const std::string TIME_SERVER =
      "dynamic Time Service_Object * libnetsvcs-7.0.8.so:_make_ACE_TS_Server_Acceptor() \"-p 0\"";
  const Debian_Packages packages_;
  Systemd_Machine machine_;

private:
  // An operator answers yes to apt, and takes more time for the next command than the program and the journal take to
  // log what a command has caused.
  static constexpr char PACE[] = R"(
export DEBIAN_FRONTEND=noninteractive
apt() { command apt-get -q -y --no-install-recommends "$@"; }
systemctl() {
  command systemctl --no-pager "$@" || return
  [[ $1 != reload ]] || until journalctl -u $2 | grep -q reconfiguring; do sleep 0.1; done
}
journalctl() { command journalctl --sync && command journalctl "$@"; }
)";
};

// The first block of the guide `name` that begins with `begin`.
static std::string command_of(const std::string& name, const std::string& begin)
{
  for (const Block& block : blocks_of(read_file(TESTS_SOURCE_DIR "/" + name)))
    if (block.text.compare(0, begin.size(), begin) == 0)
      return block.text;
  ADD_FAILURE() << begin;
  return "";
}

// The part of `command` before the checker.
static std::string without_checker(const std::string& command)
{
  return command.substr(0, command.find("starter-check"));
}

// An operator who reads on after the guide to operating has a component that runs, of an older version.
TEST_F(operators_machine, keeps_what_the_operator_has_written_when_the_package_goes)
{
  const std::string dir = machine_.dir() / "operator";
  must_succeed("cd " + dir +
               " && dpkg-deb -R starter_*.deb old && sed -i 's/^Version: .*/Version: 0.0.1/' old/DEBIAN/control" +
               " && dpkg-deb -b old old.deb && dpkg -i old.deb && rm -r old old.deb");
  must_succeed("mkdir /etc/starter/demo.d && echo '" + TIME_SERVER + "' >/etc/starter/demo.d/time.conf");
  must_succeed("systemctl enable --now starter@demo && test -d /var/lib/starter/demo");

  follow("doc/installing.md", 5);

  EXPECT_EQ(TIME_SERVER, machine_.run("cat /etc/starter/demo.d/time.conf"));
  EXPECT_FALSE(machine_.succeeds("test -e /var/lib/starter || test -e /var/lib/private/starter"));
  EXPECT_EQ("", machine_.run("find /etc/systemd/system -name 'starter*'"));
}

// The unit template leads to the programs and to the configuration of the prefix.
TEST_F(operators_machine, runs_a_component_from_another_prefix)
{
  const std::string stage = machine_.dir() / "stage";
  (void)output_of("DESTDIR=" + stage +
                  " " TESTS_CMAKE " --install " TESTS_BUILD_DIR " --prefix /usr/local --component starter");
  must_succeed("mkdir -p /usr/local/lib/systemd/system /usr/local/etc/starter/demo.d");
  must_succeed("mount --bind /usr/lib/systemd/system /usr/local/lib/systemd/system");
  must_succeed("cp -r " + stage + "/usr/local/. /usr/local && systemctl daemon-reload");
  must_succeed("echo '" + TIME_SERVER + "' >/usr/local/etc/starter/demo.d/time.conf");

  must_succeed("systemctl start starter@demo");

  EXPECT_EQ("/usr/local/sbin/starter",
            machine_.run("readlink /proc/$(systemctl show --value -p MainPID starter@demo)/exe"));
  EXPECT_TRUE(machine_.succeeds("systemctl reload starter@demo"));
}

TEST_F(operators_machine, has_a_component_after_five_commands)
{
  follow("doc/operating.md", 5);

  EXPECT_EQ("active", machine_.run("systemctl is-active starter@demo"));
  EXPECT_TRUE(machine_.succeeds("test -h /etc/systemd/system/multi-user.target.wants/starter@demo.service"));
}

// The guide has a command that checks the configuration of a component with its account.
TEST_F(operators_machine, checks_a_configuration_as_the_component_sees_it)
{
  follow("doc/operating.md", 5);
  const std::string check = command_of("doc/operating.md", "systemd-run ");

  EXPECT_EQ(machine_.run("stat -c %u /proc/$(systemctl show --value -p MainPID starter@demo)"),
            machine_.run(without_checker(check) + " id -u 2>/dev/null"));

  must_succeed("chmod 600 /etc/starter/demo.d/time.conf");
  EXPECT_THAT(machine_.run(check), testing::HasSubstr("/etc/starter/demo.d/time.conf: unreadable-file:"));
  EXPECT_FALSE(machine_.succeeds(check));
  must_succeed("systemctl stop starter@demo");
  EXPECT_FALSE(machine_.succeeds(check)) << "without the component";
}
