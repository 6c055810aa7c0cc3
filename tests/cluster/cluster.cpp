#include "tests/cluster/cluster.h"

#include "tests/support/changeable_system.h"
#include "tests/support/command.h"
#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include <sched.h>
#include <sys/stat.h>

// The clients of the service are in this process, outside of all machines.
static const char NETWORK_SCRIPT[] = R"(
set -e
mount --make-rprivate /
ip link set lo up
for bridge in ring service; do
  ip link add $bridge type bridge
  ip link set $bridge up
done
ip address add 198.51.100.100/24 dev service
)";

// The packages are installed once, into directories that all machines have as the lower part of their own. The machines
// see mounts of the test here, and none below /tmp.
static const std::string BASE = "/mnt";

static const char INSTALL_SCRIPT[] = R"(
set -e
base=$1
shift
mount -t tmpfs -o mode=755 tmpfs $base
mkdir $base/cgroup
mount -t cgroup2 cgroup2 $base/cgroup
exec unshare --mount sh -ec '
  base=$1
  shift
  for dir in etc usr var; do
    mkdir -p $base/$dir $base/.work/$dir
    mount -t overlay -o lowerdir=/$dir,upperdir=$base/$dir,workdir=$base/.work/$dir overlay /$dir
  done
  if [ $# -gt 0 ]; then dpkg --force-unsafe-io --install "$@"; fi
' sh $base "$@"
)";

// A cable has one end in a bridge and the other in the machine. The ends of a former machine go a while after it.
static const char CONNECT_SCRIPT[] = R"(
set -e
number=$1 pid=$2
connect() {
  ip link delete $1$number 2>/dev/null || :
  ip link add $1$number type veth peer name $1 netns $pid
  ip link set $1$number master $1 up
  nsenter --target $pid --net ip address add $2.$number/24 dev $1
  nsenter --target $pid --net ip link set $1 up
}
nsenter --target $pid --net ip link set lo up
nsenter --target $pid --uts hostname node$number
connect ring 192.0.2
connect service 198.51.100
)";

static std::string script(const Temp_Dir& dir, const std::string& name, const char* text, const std::string& arguments)
{
  return "sh " + dir.write(name, text) + ' ' + arguments;
}

Cluster::Cluster(const std::vector<std::string>& packages)
{
  if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0)
    throw std::runtime_error("no namespaces");
  (void)output_of(script(dir_, "network", NETWORK_SCRIPT, ""));
  install(packages);
  switch_ = std::make_unique<Power_Switch>(socket(), [this](const std::string& name) { return power_off(name); });
}

void Cluster::install(const std::vector<std::string>& packages) const
{
  std::string arguments = BASE;
  for (const std::string& package : packages)
    arguments += ' ' + package;
  (void)output_of(script(dir_, "install", INSTALL_SCRIPT, arguments));
}

void Cluster::add_file(const std::string& path, const std::string& content, const std::string& owner,
                       const std::string& mode) const
{
  const std::string file = BASE + path;
  dir_.write("file", content);
  (void)output_of("mkdir -p $(dirname " + file + ") && install --owner=" + owner.substr(0, owner.find(':')) +
                  " --group=" + owner.substr(owner.find(':') + 1) + " --mode=" + mode + ' ' + dir_ / "file" + ' ' +
                  file);
}

void Cluster::boot(unsigned node, const std::string& units)
{
  auto machine = std::make_unique<Systemd_Machine>(Systemd_Machine::Network::OWN);
  add_system_units(*machine);
  for (const char* const target : {"network-online.target", "time-sync.target", "resource-agents-deps.target"})
    machine->add_unit(target, "[Unit]\nDefaultDependencies=no\n");
  (void)output_of("cp $(ls -d /usr/lib/systemd/system/corosync.service /usr/lib/systemd/system/pacemaker.service " +
                  BASE + "/usr/lib/systemd/system/starter* 2>/dev/null) " + machine->dir() / "units");

  ASSERT_TRUE(machine->boot()) << machine->console();
  ASSERT_NO_FATAL_FAILURE(make_changeable(*machine, BASE));
  (void)output_of(
      script(dir_, "connect", CONNECT_SCRIPT, std::to_string(node + 1) + ' ' + std::to_string(machine->pid())));
  ASSERT_TRUE(machine->succeeds("systemctl daemon-reload && systemctl start systemd-journald dbus " + units))
      << machine->console();

  const std::lock_guard<std::mutex> guard(mutex_);
  machines_[node] = std::move(machine);
}

void Cluster::power_off(unsigned node)
{
  const std::lock_guard<std::mutex> guard(mutex_);
  if (is_on(node))
    machines_[node]->power_off();
}

bool Cluster::power_off(const std::string& name)
{
  for (unsigned i = 0; i < SIZE; ++i)
    if (name_of(i) == name) {
      power_off(i);
      return true;
    }
  return false;
}

void Cluster::cut_off(unsigned node) const
{
  (void)output_of("ip link set ring" + std::to_string(node + 1) + " down");
}

bool Cluster::is_on(unsigned node) const
{
  return machines_[node] && machines_[node]->pid() != -1;
}

Systemd_Machine& Cluster::any_machine() const
{
  for (const auto& machine : machines_)
    if (machine && machine->pid() != -1)
      return *machine;
  throw std::runtime_error("all machines are off");
}

std::string Cluster::processes_file(unsigned node, const std::string& name) const
{
  const std::string init = "/init.scope";
  std::string group =
      without_newline(output_of("sed -n 's/^0:://p' /proc/" + std::to_string(machines_[node]->pid()) + "/cgroup"));
  EXPECT_EQ(init, group.substr(group.size() - init.size())) << group;
  group.resize(group.size() - init.size());
  return BASE + "/cgroup" + group + "/system.slice/system-starter.slice/starter@" + name + ".service/cgroup.procs";
}
