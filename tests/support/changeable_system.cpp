#include "tests/support/changeable_system.h"

#include <gtest/gtest.h>

void add_system_units(const Systemd_Machine& machine)
{
  for (const char* const target :
       {"sysinit.target", "basic.target", "shutdown.target", "network.target", "multi-user.target"})
    machine.add_unit(target, "[Unit]\nDefaultDependencies=no\n");

  machine.add_unit("systemd-journald.service", "[Unit]\nDefaultDependencies=no\n"
                                               "[Service]\nType=notify\nStandardOutput=null\n"
                                               "ExecStart=/lib/systemd/systemd-journald\n");
  machine.add_unit("dbus.socket",
                   "[Unit]\nDefaultDependencies=no\n[Socket]\nListenStream=/run/dbus/system_bus_socket\n");
  machine.add_unit("dbus.service", "[Unit]\nDefaultDependencies=no\nRequires=dbus.socket\n"
                                   "[Service]\nType=notify\nNotifyAccess=main\n"
                                   "ExecStart=/usr/bin/dbus-daemon --system --address=systemd: --nofork"
                                   " --nopidfile --systemd-activation --syslog-only\n");
}

// The units of the machine are in a directory of the test, which takes the place of the one that packages use. The
// directory of the test, which is in /tmp, stays where it is when the machine gets a /tmp of its own.
void make_changeable(const Systemd_Machine& machine, const std::string& base)
{
  const std::string script = R"(
set -e
dir=$1 base=$2
mkdir /run/own
mount -t tmpfs tmpfs /run/own
for top in etc usr var; do
  mkdir -p /run/own/$top/upper /run/own/$top/work
  lower=${base:+$base/$top:}/$top
  mount -t overlay -o lowerdir=$lower,upperdir=/run/own/$top/upper,workdir=/run/own/$top/work overlay /$top
done
mount --bind $dir/units /usr/lib/systemd/system
mkdir /run/test
mount --bind $dir /run/test
mount -t tmpfs -o mode=700 tmpfs /root
mount -t tmpfs -o mode=1777 tmpfs /tmp
mkdir -p $dir
mount --bind /run/test $dir
)";
  const std::string& dir = machine.dir().path();
  const std::string command =
      "sh " + machine.dir().write("make_changeable", script) + ' ' + dir + " '" + base + "' 2>&1 || echo failed";
  ASSERT_EQ("", machine.run(command)) << machine.console();
}
