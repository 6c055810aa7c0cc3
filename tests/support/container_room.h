#ifndef TESTS_SUPPORT_CONTAINER_ROOM_H
#define TESTS_SUPPORT_CONTAINER_ROOM_H

#include "tests/support/command.h"

#include <string>

/// Whether containers can be run here: podman and what it needs are installed, and a process may have namespaces of its
/// own. The names of what is missing are in `missing`.
bool can_run_containers(std::string& missing);

/// Run the script `commands` for bash in a room of its own, where podman works: with mounts, processes, networks, users
/// and devices of its own, and without containers and images. The script ends at the first command that fails. Whatever
/// it starts ends with it, and no command in it can change the devices of this machine. It needs root.
Ended run_in_container_room(const std::string& commands);

#endif // TESTS_SUPPORT_CONTAINER_ROOM_H
