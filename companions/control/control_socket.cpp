#include "companions/control/control_socket.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

enum { WAITING_CONNECTIONS = 128 };

static int fail(int fd, int error)
{
  if (fd != -1)
    (void)::close(fd);
  errno = error;
  return -1;
}

static const sockaddr* as_address(const sockaddr_un& address)
{
  return reinterpret_cast<const sockaddr*>(&address);
}

// Removes a socket that nobody listens at. False with errno.
static bool make_room(const sockaddr_un& address)
{
  struct stat status = {};
  if (::lstat(address.sun_path, &status) != 0)
    return errno == ENOENT;
  if (!S_ISSOCK(status.st_mode)) {
    errno = EEXIST;
    return false;
  }

  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd == -1)
    return false;
  const int error = ::connect(fd, as_address(address), sizeof address) == 0 ? 0 : errno;
  (void)::close(fd);
  if (error != ECONNREFUSED) {
    errno = error == 0 || error == EAGAIN ? EADDRINUSE : error;
    return false;
  }
  return ::unlink(address.sun_path) == 0 || errno == ENOENT;
}

int open_control_socket(const std::string& path)
{
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path[0] != '/')
    return fail(-1, EINVAL);
  if (path.size() >= sizeof address.sun_path)
    return fail(-1, ENAMETOOLONG);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  if (!make_room(address))
    return -1;

  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd == -1)
    return -1;
  // The file gets the mode of the socket, without what the umask takes: there is no moment in which others may connect,
  // and the umask, which belongs to all threads, stays.
  if (::fchmod(fd, S_IRUSR | S_IWUSR) != 0 || ::bind(fd, as_address(address), sizeof address) != 0 ||
      ::listen(fd, WAITING_CONNECTIONS) != 0)
    return fail(fd, errno);
  return fd;
}

void close_control_socket(int fd, const std::string& path, ino_t inode)
{
  if (inode != 0 && inode_of(path) == inode)
    (void)::unlink(path.c_str());
  (void)::close(fd);
}

ino_t inode_of(const std::string& path)
{
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

bool is_peer_allowed(int fd)
{
  ucred peer = {};
  socklen_t size = sizeof peer;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && (peer.uid == 0 || peer.uid == ::geteuid());
}
