#include "tests/soak/client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr std::size_t BLOCK_SIZE = 16384;
static constexpr std::size_t SLOW_BLOCK_SIZE = 2048;
static constexpr std::chrono::milliseconds SLOW_PAUSE(5);

// Most send little; a few more than the sockets on the way can hold.
static std::size_t draw_length(Manner manner, std::mt19937& random)
{
  if (manner == SLOW)
    return 10000 + random() % 200000;
  return random() % 10 == 0 ? 1 + random() % 2000000 : 1 + random() % 20000;
}

Client::Client(unsigned short port, Manner manner, std::mt19937& random)
    : manner_(manner), seed_(random()), length_(draw_length(manner, random)),
      fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // Its failure, unless it is the usual one of a call that does not wait, shows at the first send.
  (void)connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

Client::~Client()
{
  close(fd_);
}

short Client::events() const
{
  const bool reads = manner_ != SLOW || Clock::now() >= rests_until_;
  return static_cast<short>((reads ? POLLIN : 0) | (sent_ < length_ ? POLLOUT : 0));
}

Client::State Client::fail(const std::string& fault)
{
  fault_ = fault + " after " + std::to_string(sent_) + " of " + std::to_string(length_) + " bytes sent and " +
           std::to_string(received_) + " received";
  return BROKEN;
}

// Half of those that vanish leave a reset instead of an end.
Client::State Client::vanish()
{
  if (seed_ % 2 == 0) {
    const linger at_once = {1, 0};
    (void)setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once); // an end does as well
  }
  return DONE;
}

Client::State Client::send_some()
{
  char block[BLOCK_SIZE];
  const std::size_t size = std::min(sizeof block, length_ - sent_);
  for (std::size_t i = 0; i < size; ++i)
    block[i] = byte_at(sent_ + i);

  const ssize_t n = send(fd_, block, size, MSG_NOSIGNAL);
  if (n < 0)
    return errno == EAGAIN || errno == EINTR ? AT_WORK : fail(std::string("send: ") + std::strerror(errno));

  sent_ += static_cast<std::size_t>(n);
  if (sent_ == length_ && manner_ == VANISHING)
    return vanish();
  if (sent_ == length_)
    (void)shutdown(fd_, SHUT_WR); // its failure shows in what is read
  return AT_WORK;
}

Client::State Client::receive_some()
{
  char block[BLOCK_SIZE];
  const ssize_t n = recv(fd_, block, manner_ == SLOW ? SLOW_BLOCK_SIZE : sizeof block, 0);
  if (n < 0)
    return errno == EAGAIN || errno == EINTR ? AT_WORK : fail(std::string("recv: ") + std::strerror(errno));
  if (n == 0)
    return received_ == length_ ? DONE : fail("the end");

  for (ssize_t i = 0; i < n; ++i, ++received_)
    if (received_ >= sent_ || block[i] != byte_at(received_)) {
      garbled_ = true;
      return fail("a wrong byte");
    }
  rests_until_ = Clock::now() + SLOW_PAUSE;
  return AT_WORK;
}

Client::State Client::work(short revents)
{
  State state = AT_WORK;
  if (revents & ~POLLOUT)
    state = receive_some();
  if (state == AT_WORK && (revents & POLLOUT) && sent_ < length_)
    state = send_some();
  return state;
}
