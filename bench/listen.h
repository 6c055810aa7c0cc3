#ifndef BENCH_LISTEN_H
#define BENCH_LISTEN_H

#include <cstdint>
#include <cstdlib>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

/// Returns a socket that listens on the loopback interface at the port that the text names.
inline int listen_at(const char* port)
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in at = {};
  at.sin_family = AF_INET;
  at.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 || listen(fd, 1024) != 0)
    std::exit(1);
  return fd;
}

/// Tell the benchmark that the server is there.
inline void report()
{
  if (::write(STDERR_FILENO, "is started.\n", 12) != 12)
    std::exit(1);
}

#endif // BENCH_LISTEN_H
