#include "tests/support/systemd_machine.h"

#include "tests/support/command.h"
#include "tests/support/wait_until.h"

#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

static const char INIT[] = "/lib/systemd/systemd";

// This script runs in a mount namespace. It makes a control group for the machine below that of the test, removes the
// group at the end, and ends the machine when it is killed itself.
static const char OUTER_SCRIPT[] = R"(
set -e
dir=$1
mkdir $dir/cgroup
mount -t cgroup2 cgroup2 $dir/cgroup
home=$dir/cgroup$(sed -n 's/^0:://p' /proc/self/cgroup)
own=$home/starter-test-$$
mkdir $own
echo $$ >$own/cgroup.procs

setpriv --pdeathsig KILL unshare --pid --fork --kill-child --mount --uts --ipc --cgroup $4 sh -c "$INNER_SCRIPT" sh "$@" || :

echo $$ >$home/cgroup.procs
until find $own -depth -type d -exec rmdir {} + 2>/dev/null; do sleep 0.01; done
)";

// This script is process 1 before it executes systemd. The old /proc, which is still mounted, shows the process id that
// it has outside.
static const char INNER_SCRIPT[] = R"(
set -e
dir=$1 console=$2 init=$3
read pid rest </proc/self/stat
echo $pid >$dir/pid.new

mkdir $dir/dev
mount -t tmpfs -o mode=755 tmpfs $dir/dev
for node in null zero full random urandom tty; do
  : >$dir/dev/$node
  mount --bind /dev/$node $dir/dev/$node
done
: >$dir/dev/console
mount --bind $console $dir/dev/console
mkdir $dir/dev/pts $dir/dev/shm
mount -t devpts -o newinstance,ptmxmode=666 devpts $dir/dev/pts
ln -s pts/ptmx $dir/dev/ptmx
mount -t tmpfs -o mode=1777 tmpfs $dir/dev/shm
mount --move $dir/dev /dev

mount -t proc proc /proc
mount --bind /proc/sys /proc/sys
mount -o remount,bind,ro /proc/sys
mount -t tmpfs tmpfs /run
mount -t cgroup2 cgroup2 /sys/fs/cgroup

mount --bind /tmp /tmp
mount -o remount,bind,ro /tmp
mount -o remount,bind,ro /
mount --bind $dir $dir
mount -o remount,bind,rw $dir

mv $dir/pid.new $dir/pid
exec env -i container=test PATH=/usr/sbin:/usr/bin:/sbin:/bin SYSTEMD_UNIT_PATH=$dir/units:/run/systemd/system:/etc/systemd/system \
  $init --system --unit=test.target --log-target=console --log-color=no --show-status=no
)";

// A real machine lets 512 messages wait in a socket, and systemd sees to that. This one has the kernel's default,
// except for sockets that are made in a namespace of their own.
static const char JOURNALD_UNIT[] = R"([Unit]
DefaultDependencies=no
[Service]
Type=notify
ExecStart=/usr/bin/unshare --net --mount sh -c "mount -o remount,bind,rw /proc/sys && \
  echo 512 >/proc/sys/net/unix/max_dgram_qlen && exec /lib/systemd/systemd-journald"
)";

// Nothing is dropped by the journal itself, and nothing leaves the machine.
static const char JOURNALD_CONF[] = R"([Journal]
Storage=volatile
RateLimitIntervalSec=0
RuntimeMaxUse=2G
RuntimeKeepFree=1M
ReadKMsg=no
Audit=no
ForwardToWall=no
ForwardToSyslog=no
)";

bool Systemd_Machine::is_installed()
{
  return access(INIT, X_OK) == 0;
}

Systemd_Machine::Systemd_Machine(Network network) : network_(network)
{
  add_unit("test.target", "[Unit]\nDefaultDependencies=no\n");

  console_fd_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (console_fd_ == -1 || grantpt(console_fd_) != 0 || unlockpt(console_fd_) != 0)
    throw std::runtime_error("no terminal");
  reader_ = std::thread(&Systemd_Machine::read_console, this);
}

Systemd_Machine::~Systemd_Machine()
{
  if (init_ != -1)
    kill(init_, SIGKILL);
  else if (outer_ != -1)
    kill(outer_, SIGKILL);
  if (outer_ != -1)
    waitpid(outer_, nullptr, 0);

  ended_ = true;
  reader_.join();
  close(console_fd_);
}

// The parent of process 1 ends with it, after the kernel has ended all others of the machine. The shell outside still
// has to clean up.
void Systemd_Machine::power_off()
{
  const pid_t init = init_;
  init_ = -1;
  kill(init, SIGKILL);
  (void)wait_until([init] { return kill(init, 0) != 0; });
  waitpid(outer_, nullptr, 0);
  outer_ = -1;
}

// Reads all the time, because a full terminal would hold systemd back.
void Systemd_Machine::read_console()
{
  while (!ended_) {
    pollfd fd{console_fd_, POLLIN, 0};
    char buf[4096];
    const ssize_t n = poll(&fd, 1, 20) == 1 ? read(console_fd_, buf, sizeof buf) : 0;
    if (n > 0) {
      const std::lock_guard<std::mutex> guard(mutex_);
      console_.append(buf, static_cast<std::size_t>(n));
    } else if (n < 0)
      usleep(1000); // no process has the other end open
  }
}

std::string Systemd_Machine::console() const
{
  const std::lock_guard<std::mutex> guard(mutex_);
  return console_;
}

void Systemd_Machine::start()
{
  const std::string console = ptsname(console_fd_);
  const pid_t parent = getpid();

  outer_ = fork();
  if (outer_ != 0)
    return;

  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent)
    _exit(1);
  const int fd = open(console.c_str(), O_RDWR | O_NOCTTY);
  dup2(fd, STDIN_FILENO);
  dup2(fd, STDOUT_FILENO);
  dup2(fd, STDERR_FILENO);
  setenv("INNER_SCRIPT", INNER_SCRIPT, 1);
  unsetenv("LD_PRELOAD");
  execlp("unshare", "unshare", "--mount", "--propagation", "private", "sh", "-c", OUTER_SCRIPT, "sh",
         dir_.path().c_str(), console.c_str(), INIT, network_ == Network::OWN ? "--net" : "",
         static_cast<char*>(nullptr));
  _exit(127);
}

bool Systemd_Machine::boot()
{
  start();

  if (!wait_until([this] { return !read_file(dir_ / "pid").empty(); }))
    return false;
  init_ = static_cast<pid_t>(std::stol(read_file(dir_ / "pid")));

  return wait_until([this] { return run("systemctl is-system-running 2>/dev/null") == "running"; });
}

void Systemd_Machine::add_journal() const
{
  add_unit("journald.service", JOURNALD_UNIT);
  dir_.write("journald.conf", JOURNALD_CONF);
}

bool Systemd_Machine::start_journal() const
{
  return succeeds("mkdir -p /run/systemd/journald.conf.d /run/systemd/journal && cp " + dir_ / "journald.conf" +
                  " /run/systemd/journald.conf.d/test.conf && systemctl start journald.service");
}

std::string Systemd_Machine::make_command(const std::string& command) const
{
  const std::string script = dir_.write("command", command + '\n');
  return "nsenter -t " + std::to_string(init_) + " -a sh " + script;
}

std::string Systemd_Machine::run(const std::string& command) const
{
  return without_newline(run_for_stdout(make_command(command)).output);
}

bool Systemd_Machine::succeeds(const std::string& command) const
{
  return std::system(make_command(command).c_str()) == 0;
}
