#ifndef COMPANIONS_CONTROL_CONTROL_SOCKET_H
#define COMPANIONS_CONTROL_CONTROL_SOCKET_H

/// @file
/// The socket that clients connect to.

#include <string>

#include <sys/types.h>

/// Listen at `path`, in place of a socket of a process that is not there any more. The socket file has the mode 0600
/// from its making on. Returns a descriptor that does not block, or -1 with errno: EINVAL (not an absolute path),
/// ENAMETOOLONG, EADDRINUSE (a process listens there), EEXIST (something else is there), or the failing call's. Any
/// thread.
int open_control_socket(const std::string& path);

/// Close the descriptor, and remove the file at `path` if it is still the one that was made for it. Any thread.
void close_control_socket(int fd, const std::string& path, ino_t inode);

/// The inode of the file at `path`, 0 for none.
ino_t inode_of(const std::string& path);

/// Whether the peer of the connection `fd` may give commands: it runs as root, or as the user of this process. Any
/// thread.
bool is_peer_allowed(int fd);

#endif // COMPANIONS_CONTROL_CONTROL_SOCKET_H
