#ifndef BENCH_NOTIFICATIONS_H
#define BENCH_NOTIFICATIONS_H

#include "bench/notify.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <ctime>

/// Stands for the notification socket of systemd. The kernel stamps each message when it is sent, so that it does not
/// matter when the receiver gets to read it. The kernel keeps ten messages; a sender waits for room for more.
class Notifications
{
public:
  explicit Notifications(const std::string& path);
  ~Notifications() { close(fd_); }

  Notifications(const Notifications&) = delete;
  Notifications& operator=(const Notifications&) = delete;

  /// Take the messages that have come since, without waiting. Returns each with the time of day, in seconds, at which
  /// it was sent.
  std::vector<std::pair<std::string, double>> take();

private:
  int fd_;
};

inline Notifications::Notifications(const std::string& path)
    : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
  sockaddr_un at = {};
  at.sun_family = AF_UNIX;
  std::memcpy(at.sun_path, path.c_str(), std::min(path.size(), sizeof at.sun_path - 1));
  const int on = 1;
  (void)unlink(path.c_str());
  if (bind(fd_, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 ||
      setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0) {
    close(fd_);
    throw std::runtime_error("no notification socket at " + path);
  }
}

inline std::vector<std::pair<std::string, double>> Notifications::take()
{
  std::vector<std::pair<std::string, double>> messages;
  for (;;) {
    char text[256];
    iovec part = {text, sizeof text};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timespec))];
    msghdr header = {};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(fd_, &header, 0);
    if (size < 0)
      return messages;

    const cmsghdr* const stamp = CMSG_FIRSTHDR(&header);
    if (!stamp || stamp->cmsg_type != SCM_TIMESTAMPNS)
      throw std::runtime_error("the kernel stamps no messages");
    timespec sent;
    std::memcpy(&sent, CMSG_DATA(stamp), sizeof sent);
    messages.emplace_back(std::string(text, static_cast<std::size_t>(size)),
                          static_cast<double>(sent.tv_sec) + 1e-9 * static_cast<double>(sent.tv_nsec));
  }
}

#endif // BENCH_NOTIFICATIONS_H
