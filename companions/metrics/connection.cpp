#include "companions/metrics/connection.h"

#include "companions/metrics/http_answer.h"

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

Connection::~Connection()
{
  (void)::close(fd_);
}

short Connection::events() const
{
  return state_ == State::WRITING ? POLLOUT : POLLIN;
}

// Whether the last call failed only because the client is not ready for it.
static bool is_too_early()
{
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

bool Connection::read_request(const std::function<std::string()>& metrics)
{
  char text[2048];
  const ssize_t n = ::recv(fd_, text, sizeof text, 0);
  if (n <= 0)
    return n == -1 && is_too_early();
  request_.append(text, static_cast<std::size_t>(n));

  if (is_request_complete(request_))
    answer_ = answer_request(request_, metrics);
  else if (request_.size() >= MAX_REQUEST_SIZE)
    answer_ = answer_large_request();
  else
    return true;
  state_ = State::WRITING;
  return write_answer();
}

bool Connection::write_answer()
{
  while (written_ < answer_.size()) {
    const ssize_t n = ::send(fd_, answer_.data() + written_, answer_.size() - written_, MSG_NOSIGNAL);
    if (n == -1)
      return is_too_early();
    written_ += static_cast<std::size_t>(n);
  }
  // To close a connection with something unread in it would take the answer away from the client.
  state_ = State::DRAINING;
  return ::shutdown(fd_, SHUT_WR) == 0 && drain();
}

bool Connection::drain() const
{
  char text[2048];
  const ssize_t n = ::recv(fd_, text, sizeof text, 0);
  return n > 0 || (n == -1 && is_too_early());
}

bool Connection::go_on(const std::function<std::string()>& metrics)
{
  switch (state_) {
  case State::READING:
    return read_request(metrics);
  case State::WRITING:
    return write_answer();
  default:
    return drain();
  }
}
