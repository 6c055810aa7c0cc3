#include "tests/support/container_room.h"

#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

// This script runs in namespaces of its own for all but users. A runtime of containers gives the devices on its
// standard descriptors to the account of the container, so that the room has devices of its own. It loads a filter of
// devices as well, and raises a limit for that; only in a user namespace does it go on where it may not. The accounts
// in the user namespace are those outside.
static const char OUTER_SCRIPT[] = R"sh(
set -eu
mount -t tmpfs -o mode=755 tmpfs /run
mkdir /run/dev
for device in null:3 zero:5 full:7 random:8 urandom:9; do
  mknod -m 666 /run/dev/${device%:*} c 1 ${device#*:}
  mount --bind /run/dev/${device%:*} /dev/${device%:*}
done
mount -t tmpfs tmpfs /dev/shm
mkdir -p /var/lib/containers
mount -t tmpfs tmpfs /var/lib/containers
umount -R /sys/fs/cgroup
mount -t cgroup2 cgroup2 /sys/fs/cgroup
cat >/run/containers.conf <<'END'
[containers]
default_ulimits = ["nofile=4096:4096", "nproc=1024:1024"]
[engine]
cgroup_manager = "cgroupfs"
events_logger = "none"
END

mkfifo /run/mapped
unshare --user --mount --net --cgroup --pid --fork --kill-child sh -c '
  read mapped </run/mapped
  mount -t proc proc /proc
  exec env CONTAINERS_CONF=/run/containers.conf bash -eu "$0"' "$1" &
until inner=$(pgrep -P $!) && [ "$(readlink /proc/$inner/ns/user)" != "$(readlink /proc/self/ns/user)" ]; do
  sleep 0.05
done
echo "0 0 65536" >/proc/$inner/uid_map
echo "0 0 65536" >/proc/$inner/gid_map
echo >/run/mapped
wait $!
)sh";

bool can_run_containers(std::string& missing)
{
  missing = is_root() ? missing_tools({"podman", "crun", "conmon", "catatonit", "pgrep", "ip"}) : "root";
  return missing.empty();
}

Ended run_in_container_room(const std::string& commands)
{
  const Temp_Dir dir;
  const std::string outer = dir.write("outer", OUTER_SCRIPT);
  const std::string inner = dir.write("inner", commands + '\n');
  return run("unshare --mount --net --pid --fork --kill-child --mount-proc timeout -k 5 240 sh " + outer + ' ' + inner);
}
