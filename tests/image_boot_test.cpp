// The images of a component under a real systemd, in a machine of its own.

#include "tests/support/changeable_system.h"
#include "tests/support/command.h"
#include "tests/support/component_image.h"
#include "tests/support/container_room.h"
#include "tests/support/guide.h"
#include "tests/support/requirements.h"
#include "tests/support/systemd_machine.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>

static const std::string WRITABLE_VAR =
    "mount -t tmpfs tmpfs /var && mkdir -p /var/tmp /var/lib/containers /var/lib/portables";

namespace
{
class image_boot : public testing::Test
{
protected:
  void SetUp() override
  {
    NEEDS(is_root(), "root, for namespaces of its own");
    NEEDS(Systemd_Machine::is_installed(), "systemd");
    std::string missing;
    NEEDS(can_make_images(missing), missing);
    add_system_units(machine_);
  }

  void TearDown() override
  {
    if (HasFailure())
      std::cerr << "The console:\n"
                << machine_.console() << "\nThe log:\n"
                << machine_.run("journalctl -u echo") << '\n';
  }

  void must_succeed(const std::string& command) const
  {
    ASSERT_TRUE(machine_.succeeds(command)) << command << '\n' << machine_.console();
  }

  std::string show(const std::string& property) const
  {
    return machine_.run("systemctl show --value --property " + property + " echo");
  }

  Systemd_Machine machine_;
};
} // namespace

TEST_F(image_boot, attaches_a_portable_image_and_starts_it)
{
  NEEDS(missing_tools({"portablectl", "dbus-daemon", "unsquashfs"}).empty(), "portablectl, dbus and unsquashfs");
  const Component_Image image("-P");
  machine_.add_unit("dbus-org.freedesktop.portable1.service",
                    "[Unit]\nDefaultDependencies=no\n[Service]\nType=dbus\nBusName=org.freedesktop.portable1\n"
                    "ExecStart=/lib/systemd/systemd-portabled\n");
  machine_.add_unit("echo.service.d/network.conf", "[Service]\nPrivateNetwork=yes\n"); // other tests use the port
  ASSERT_TRUE(machine_.boot()) << machine_.console();
  must_succeed(WRITABLE_VAR);
  // The machine has no devices that a file could be mounted by, so that it gets the image as a directory.
  must_succeed("unsquashfs -quiet -no-progress -dest /var/lib/portables/echo " + image.file());
  const std::string dir = machine_.dir().path();
  // The directory of the test, which is in /tmp, stays where it is.
  must_succeed("mkdir /run/test && mount --bind " + dir +
               " /run/test && mount -t tmpfs -o mode=1777 tmpfs /tmp && "
               "mkdir -p " +
               dir + " && mount --bind /run/test " + dir + "");
  must_succeed("touch /dev/log && systemctl start systemd-journald.service dbus.service");
  // The machine looks for units nowhere else.
  must_succeed("mkdir -p /run/systemd/system.attached && mount --bind " + machine_.dir() / "units" +
               " /run/systemd/system.attached");

  must_succeed("portablectl attach --runtime --now echo");

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ("/usr/sbin/starter", machine_.run("readlink /proc/" + show("MainPID") + "/exe"));
  EXPECT_EQ("hello", machine_.run("nsenter --net --target " + show("MainPID") +
                                  " sh -c '(echo hello; sleep 1) | nc -q1 127.0.0.1 7007'"));
  must_succeed("systemctl stop echo");
  EXPECT_EQ("success", show("Result"));
}

// The container's process tells systemd itself, by the socket that podman passes on.
TEST_F(image_boot, passes_readiness_and_keep_alives_of_a_container_through)
{
  std::string missing;
  NEEDS(can_run_containers(missing), missing);
  const Component_Image image;
  // The limit of processes is one that the runtime may set here.
  const std::regex limit("--ulimit");
  const std::string unit = read_file(TESTS_SOURCE_DIR "/cluster/container.service");
  machine_.add_unit("echo.service", std::regex_replace(unit, limit, "--ulimit nproc=1024:1024 --ulimit"));
  machine_.add_unit("echo.service.d/machine.conf",
                    "[Unit]\nDefaultDependencies=no\n"
                    "[Service]\nEnvironment=CONTAINERS_CONF=/run/containers.conf\nWatchdogSec=9\n");
  ASSERT_TRUE(machine_.boot()) << machine_.console();
  // The runtime of containers gives the devices on its standard descriptors to the account of the container.
  must_succeed("mkdir /run/dev && mknod -m 666 /run/dev/null c 1 3 && mount --bind /run/dev/null /dev/null");
  must_succeed(WRITABLE_VAR);
  must_succeed(
      "echo '[containers]\ncgroups = \"disabled\"\n"
      "netns = \"none\"\n[engine]\ncgroup_manager = \"cgroupfs\"\nevents_logger = \"none\"' >/run/containers.conf");
  must_succeed("systemctl start systemd-journald.service");
  must_succeed("CONTAINERS_CONF=/run/containers.conf podman load --quiet --input " + image.file());

  must_succeed("systemctl log-level debug && systemctl start echo");

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_TRUE(wait_until([this] {
    const std::string console = machine_.console();
    std::size_t at = 0;
    for (int n = 0; n < 3; ++n)
      if ((at = console.find("WATCHDOG=1", at)) == std::string::npos)
        return false;
      else
        ++at;
    return true;
  }));
  must_succeed("systemctl stop echo");
  EXPECT_EQ("success", show("Result"));
}
