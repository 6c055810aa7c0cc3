#ifndef COMPANIONS_LIFECYCLE_NOTIFY_SOCKET_H
#define COMPANIONS_LIFECYCLE_NOTIFY_SOCKET_H

#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

/// The socket through which notifications reach systemd. It is opened once, and lives as long as the process: a signal
/// handler may use it at any moment.
///
/// The protocol is written by hand, as signal handlers notify too: systemd's client library makes a socket for each
/// message, reads the environment, takes memory, and waits for a socket that is full.
class Notify_Socket
{
public:
  Notify_Socket() = default;

  Notify_Socket(const Notify_Socket&) = delete;
  Notify_Socket& operator=(const Notify_Socket&) = delete;

  /// Get a socket for notifications to `address`, an absolute path or, with '@' before it, an abstract name. Does
  /// nothing when there is one. Returns 0, or -1 with errno: EINVAL (neither), ENAMETOOLONG, or that of socket(2).
  int open(const char* address);

  /// Send `text`, lines such as "READY=1\n", as one notification. Returns false with errno when it is not taken at
  /// once. Takes no memory and no lock, never waits. Any thread, in signal handlers too.
  bool send(std::string_view text) const;

private:
  int fd_ = -1;
  sockaddr_un address_{};
  socklen_t address_length_ = 0;
};

#endif // COMPANIONS_LIFECYCLE_NOTIFY_SOCKET_H
