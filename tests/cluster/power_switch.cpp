#include "tests/cluster/power_switch.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

Power_Switch::Power_Switch(const std::string& path, std::function<bool(const std::string&)> power_off)
    : power_off_(std::move(power_off)), fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    throw std::runtime_error("the path of the socket is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size());
  if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd_, SOMAXCONN) != 0)
    throw std::runtime_error("no socket for the power switch");
  thread_ = std::thread(&Power_Switch::serve, this);
}

Power_Switch::~Power_Switch()
{
  ended_ = true;
  thread_.join();
  close(fd_);
}

void Power_Switch::serve()
{
  while (!ended_) {
    pollfd fd{fd_, POLLIN, 0};
    if (poll(&fd, 1, 20) != 1)
      continue;
    const int peer = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    answer(peer);
    close(peer);
  }
}

// A request is a line: "ping", or "off NAME".
void Power_Switch::answer(int fd) const
{
  std::string line;
  char c;
  while (read(fd, &c, 1) == 1 && c != '\n')
    line += c;

  const bool done = line == "ping" || (line.compare(0, 4, "off ") == 0 && power_off_(line.substr(4)));
  const std::string text = done ? "done\n" : "failed\n";
  (void)!write(fd, text.data(), text.size()); // the machine that has asked may have died meanwhile
}
