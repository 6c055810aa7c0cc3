#include "companions/metrics/listener.h"

#include <ace/OS_Errno.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <system_error>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static const char UNIX_PREFIX[] = "unix:";
enum { BACKLOG = 128 };

static int make_socket(int family)
{
  return ::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// Closes `fd` if that fails.
static int listen_at(int fd, const sockaddr* address, socklen_t length)
{
  if (::bind(fd, address, length) == 0 && ::listen(fd, BACKLOG) == 0)
    return fd;
  const ACE_Errno_Guard guard(errno);
  (void)::close(fd);
  return -1;
}

// ---- At a path

// Whether there is a socket that nobody listens to, as a process leaves it that was killed.
static bool is_left_over(const sockaddr_un& address)
{
  struct stat file; // connect(2) has the same answer for a file that is no socket
  if (::lstat(address.sun_path, &file) != 0 || !S_ISSOCK(file.st_mode))
    return false;
  const int fd = make_socket(AF_UNIX);
  if (fd == -1)
    return false;
  const bool is_refused =
      ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 && errno == ECONNREFUSED;
  (void)::close(fd);
  return is_refused;
}

static int listen_at_path(const sockaddr_un& address)
{
  const int fd = make_socket(AF_UNIX);
  return fd == -1 ? -1 : listen_at(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int Listener::open_path(const char* path)
{
  sockaddr_un address = {};
  const std::size_t length = std::strlen(path);
  if (*path != '/' || length >= sizeof address.sun_path) {
    errno = *path != '/' ? EINVAL : ENAMETOOLONG;
    return -1;
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, length + 1);

  fd_ = listen_at_path(address);
  if (fd_ == -1 && errno == EADDRINUSE) {
    if (is_left_over(address) && ::unlink(path) == 0)
      fd_ = listen_at_path(address);
    else
      errno = EADDRINUSE;
  }
  if (fd_ == -1)
    return -1;
  path_ = path;
  address_ = std::string(UNIX_PREFIX) + path;
  return 0;
}

// ---- At a port

// The host of "HOST:PORT" without the brackets of an IPv6 address; empty if there is none.
static std::string host_of(const std::string& address, std::size_t colon)
{
  const std::string host = address.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    return host.substr(1, host.size() - 2);
  return host.find(':') == std::string::npos ? host : "";
}

static bool is_port(const char* text)
{
  const char* const end = text + std::strlen(text);
  std::uint16_t port;
  const auto [stop, error] = std::from_chars(text, end, port);
  return error == std::errc() && stop == end;
}

static std::string name_of(int fd)
{
  sockaddr_storage address = {};
  socklen_t length = sizeof address;
  char host[INET6_ADDRSTRLEN + 16] = "";
  char port[8] = "";
  (void)::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length); // cannot fail for a socket that is bound
  (void)::getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host, sizeof host, port, sizeof port,
                      NI_NUMERICHOST | NI_NUMERICSERV);
  return address.ss_family == AF_INET6 ? '[' + std::string(host) + "]:" + port : std::string(host) + ':' + port;
}

static int listen_at_port(const addrinfo& found)
{
  const int fd = make_socket(found.ai_family);
  if (fd == -1)
    return -1;
  const int on = 1; // a program that starts again meets connections of its predecessor, which are no obstacle
  (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  return listen_at(fd, found.ai_addr, found.ai_addrlen);
}

int Listener::open_port(const char* text)
{
  const std::string address = text;
  const std::size_t colon = address.rfind(':');
  const std::string host = colon == std::string::npos ? "" : host_of(address, colon);
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (host.empty() || !is_port(text + colon + 1) ||
      ::getaddrinfo(host.c_str(), text + colon + 1, &hints, &found) != 0) {
    errno = EINVAL;
    return -1;
  }

  fd_ = listen_at_port(*found);
  const ACE_Errno_Guard guard(errno);
  ::freeaddrinfo(found);
  if (fd_ == -1)
    return -1;
  address_ = name_of(fd_);
  return 0;
}

int Listener::open(const char* address)
{
  constexpr std::size_t length = sizeof UNIX_PREFIX - 1;
  return std::strncmp(address, UNIX_PREFIX, length) == 0 ? open_path(address + length) : open_port(address);
}

void Listener::close()
{
  if (fd_ == -1)
    return;
  if (!path_.empty())
    (void)::unlink(path_.c_str());
  (void)::close(fd_);
  fd_ = -1;
  path_.clear();
  address_.clear();
}

int Listener::accept() const
{
  return ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

void Listener::take_over(Listener& other)
{
  close();
  fd_ = other.fd_;
  address_.swap(other.address_);
  path_.swap(other.path_);
  other.fd_ = -1;
}
