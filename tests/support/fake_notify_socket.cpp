#include "tests/support/fake_notify_socket.h"

#include "tests/support/wait_until.h"

#include <cstddef>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

Fake_Notify_Socket::Fake_Notify_Socket(const std::string& address, bool is_busy)
    : address_(address), fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  address.copy(name.sun_path, sizeof name.sun_path - 1);
  const bool is_abstract = address[0] == '@';
  if (is_abstract)
    name.sun_path[0] = '\0';
  const std::size_t length = offsetof(sockaddr_un, sun_path) + address.size() + (is_abstract ? 0 : 1);
  if (fd_ == -1 || ::bind(fd_, reinterpret_cast<const sockaddr*>(&name), static_cast<socklen_t>(length)) != 0 ||
      (!is_abstract && ::chmod(address.c_str(), 0666) != 0))
    throw std::runtime_error("no socket at " + address);

  if (!is_busy)
    serve();
}

Fake_Notify_Socket::~Fake_Notify_Socket()
{
  is_ended_ = true;
  if (reader_.joinable())
    reader_.join();
  ::close(fd_);
  if (address_[0] != '@')
    ::unlink(address_.c_str());
}

void Fake_Notify_Socket::serve()
{
  reader_ = std::thread([this] {
    while (!is_ended_) {
      pollfd fd{fd_, POLLIN, 0};
      if (::poll(&fd, 1, 20) == 1)
        fetch();
    }
  });
}

void Fake_Notify_Socket::fetch()
{
  const std::lock_guard<std::mutex> guard(mutex_);
  char buffer[4096];
  for (ssize_t n; (n = ::recv(fd_, buffer, sizeof buffer, 0)) > 0;)
    messages_.emplace_back(buffer, static_cast<std::size_t>(n));
}

std::vector<std::string> Fake_Notify_Socket::messages()
{
  fetch();
  const std::lock_guard<std::mutex> guard(mutex_);
  return messages_;
}

std::vector<std::string> Fake_Notify_Socket::states()
{
  std::vector<std::string> found;
  for (const std::string& message : messages())
    for (const char* const state : {"RELOADING", "READY", "STOPPING"})
      if (message.compare(0, message.find('='), state) == 0)
        found.emplace_back(state);
  return found;
}

std::vector<std::string> Fake_Notify_Socket::values_of(const std::string& start)
{
  std::vector<std::string> found;
  for (const std::string& message : messages())
    if (message.compare(0, start.size(), start) == 0)
      found.push_back(message.substr(start.size(), message.size() - start.size() - 1));
  return found;
}

bool Fake_Notify_Socket::wait_for(const std::string& start, std::size_t count)
{
  return wait_until([&] { return values_of(start).size() >= count; });
}
