#include "tests/support/fake_control.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static sockaddr_un address_of(const std::string& path)
{
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  EXPECT_LT(path.size(), sizeof address.sun_path);
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

Fake_Control::Fake_Control(const std::string& path, bool listens) : path_(path)
{
  const sockaddr_un address = address_of(path);
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(0, bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address)) << path;
  EXPECT_EQ(0, pipe2(wake_, O_CLOEXEC));
  if (listens) {
    EXPECT_EQ(0, listen(fd_, 5));
  }
  thread_ = std::thread([this] { serve(); });
}

Fake_Control::~Fake_Control()
{
  stop_serving();
  close(fd_);
  close(wake_[0]);
  unlink(path_.c_str());
}

void Fake_Control::answer(const std::string& line)
{
  send_bytes(line + '\n', false);
}

void Fake_Control::send_bytes(const std::string& data, bool closes, bool slow)
{
  const std::lock_guard<std::mutex> lock(mutex_);
  data_ = data;
  closes_ = closes;
  slow_ = slow;
}

void Fake_Control::stop_serving()
{
  if (!thread_.joinable())
    return;
  close(wake_[1]);
  thread_.join();
}

std::vector<std::string> Fake_Control::requests() const
{
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

// Waits until `fd` is ready. False when the thread has to end.
bool Fake_Control::wait_for(int fd) const
{
  pollfd entries[] = {{fd, POLLIN, 0}, {wake_[0], POLLIN, 0}};
  return poll(entries, 2, -1) > 0 && entries[1].revents == 0;
}

void Fake_Control::serve()
{
  while (wait_for(fd_)) {
    const int client = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client == -1) { // the other process does not listen yet
      usleep(1000);
      continue;
    }
    serve_client(client);
    close(client);
  }
}

void Fake_Control::serve_client(int client)
{
  std::string line;
  for (char c = 0; wait_for(client) && recv(client, &c, 1, 0) == 1;) {
    if (c != '\n') {
      line += c;
      continue;
    }
    std::string data;
    std::size_t step = 1;
    bool closes = false;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      requests_.push_back(line);
      data = data_;
      closes = closes_;
      step = slow_ ? 1 : data.size();
    }
    line.clear();
    for (std::size_t at = 0; at < data.size(); at += step)
      if (send(client, data.data() + at, std::min(step, data.size() - at), MSG_NOSIGNAL) < 0)
        return;
    if (closes)
      return;
  }
}

Fake_Client::Fake_Client(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
  const sockaddr_un address = address_of(path);
  is_connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

Fake_Client::~Fake_Client()
{
  close(fd_);
}
