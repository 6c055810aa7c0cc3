#include "companions/lifecycle/notify_socket.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

int Notify_Socket::open(const char* address)
{
  if (fd_ != -1)
    return 0;
  if (*address != '/' && *address != '@') {
    errno = EINVAL;
    return -1;
  }
  const std::size_t length = std::strlen(address);
  if (length >= sizeof address_.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }

  address_.sun_family = AF_UNIX;
  std::memcpy(address_.sun_path, address, length + 1);
  if (*address == '@')
    address_.sun_path[0] = '\0';
  address_length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + (*address == '/' ? 1 : 0));

  fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  return fd_ == -1 ? -1 : 0;
}

bool Notify_Socket::send(std::string_view text) const
{
  const sockaddr* const address = reinterpret_cast<const sockaddr*>(&address_);
  ssize_t n;
  do
    n = ::sendto(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL, address, address_length_);
  while (n == -1 && errno == EINTR);
  return n != -1;
}
