#include "tests/support/control_client.h"

#include "tests/support/wait_until.h"

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using nlohmann::json;

enum { PATIENCE_MSEC = 120000 };

static int connect_to(const std::string& path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return fd;
  ::close(fd);
  return -1;
}

Control_Client::Control_Client(const std::string& path)
{
  (void)wait_until([this, &path] { return (fd_ = connect_to(path)) != -1; });
}

Control_Client::~Control_Client()
{
  if (fd_ != -1)
    ::close(fd_);
}

bool Control_Client::send(const std::string& text) const
{
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t n = ::send(fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno != EINTR)
      return false;
    sent += n > 0 ? static_cast<std::size_t>(n) : 0;
  }
  return true;
}

void Control_Client::end_sending() const
{
  ::shutdown(fd_, SHUT_WR);
}

std::string Control_Client::line()
{
  for (;;) {
    if (const std::size_t end = in_.find('\n'); end != std::string::npos) {
      const std::string found = in_.substr(0, end);
      in_.erase(0, end + 1);
      return found;
    }
    pollfd ready{fd_, POLLIN, 0};
    char part[65536];
    if (::poll(&ready, 1, PATIENCE_MSEC) != 1)
      return "";
    const ssize_t n = ::recv(fd_, part, sizeof part, 0);
    if (n <= 0)
      return "";
    in_.append(part, static_cast<std::size_t>(n));
  }
}

bool Control_Client::is_closed()
{
  pollfd ready{fd_, POLLIN, 0};
  char byte;
  return in_.empty() && ::poll(&ready, 1, PATIENCE_MSEC) == 1 && ::recv(fd_, &byte, 1, 0) <= 0;
}

json Control_Client::ask(const json& request)
{
  if (!send(request.dump() + '\n'))
    return nullptr;
  const json answer = json::parse(line(), nullptr, false);
  return answer.is_discarded() ? json() : answer;
}

json Control_Client::command(const std::string& name)
{
  return ask({{"command", name}});
}

json Control_Client::command(const std::string& name, const std::string& member, const json& value)
{
  return ask({{"command", name}, {member, value}});
}
