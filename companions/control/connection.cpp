#include "companions/control/connection.h"

#include "companions/control/commands.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstddef>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using nlohmann::json;

enum { MAX_REQUEST_SIZE = 65536 }; // without the end of the line
static constexpr std::chrono::seconds REQUEST_TIME(10);
static constexpr std::chrono::seconds ANSWER_TIME(10);
static constexpr std::chrono::seconds IDLE_TIME(300);
static constexpr std::chrono::seconds REFUSED_TIME(2);

Connection::Connection(int fd, Process_View& view) : fd_(fd), view_(view) {}

Connection::~Connection()
{
  (void)::close(fd_);
}

// One request at a time: the next one is read when the answer has been sent.
short Connection::events() const
{
  if (!out_.empty())
    return POLLOUT;
  return job_ || is_at_end_ ? 0 : POLLIN;
}

bool Connection::is_over() const
{
  return is_gone_ || (out_.empty() && !job_ && is_at_end_);
}

void Connection::answer_with(const json& answer)
{
  out_ += answer.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
  since_ = Clock::now();
}

void Connection::refuse(const std::string& sentence)
{
  is_refused_ = true;
  in_.clear();
  answer_with(make_error(sentence));
  send();
}

void Connection::receive()
{
  char part[4096];
  const ssize_t size = ::recv(fd_, part, sizeof part, 0);
  if (size > 0) {
    if (is_refused_)
      return; // it is read only because a client that cannot send may not look at its answer
    if (in_.empty())
      since_ = Clock::now();
    in_.append(part, static_cast<std::size_t>(size));
  } else if (size == 0)
    is_at_end_ = true;
  else if (errno != EAGAIN && errno != EINTR)
    is_gone_ = true;
}

void Connection::read_requests()
{
  while (!job_ && out_.empty() && !is_refused_ && !in_.empty()) {
    const std::size_t end = in_.find('\n');
    if (end > MAX_REQUEST_SIZE && in_.size() > MAX_REQUEST_SIZE) {
      refuse("The request has more than 65536 bytes.");
      return;
    }
    if (end == in_.npos) {
      if (is_at_end_)
        refuse("The request does not end with a line feed.");
      return;
    }

    const std::string request = in_.substr(0, end);
    in_.erase(0, end + 1);
    since_ = Clock::now();
    json answer;
    job_ = carry_out(request, view_, answer);
    if (!job_ || job_->go_on(answer)) {
      job_.reset();
      answer_with(answer);
      send();
    }
  }
}

void Connection::send()
{
  while (!out_.empty()) {
    const ssize_t size = ::send(fd_, out_.data(), out_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size > 0) {
      out_.erase(0, static_cast<std::size_t>(size));
      since_ = Clock::now();
    } else if (errno != EINTR) {
      is_gone_ = errno != EAGAIN;
      return;
    }
  }
  if (is_refused_)
    (void)::shutdown(fd_, SHUT_WR);
}

void Connection::look_at_time()
{
  const Clock::duration time = Clock::now() - since_;
  if (job_)
    return;
  if (!out_.empty())
    is_gone_ = is_gone_ || time > ANSWER_TIME;
  else if (!in_.empty() && time > REQUEST_TIME)
    refuse("The request has not been sent to its end within 10 seconds.");
  else if (time > (is_refused_ ? REFUSED_TIME : IDLE_TIME))
    is_gone_ = true;
}

void Connection::go_on(short found)
{
  if ((found & (POLLHUP | POLLERR | POLLNVAL)) != 0 && (found & POLLIN) == 0) {
    is_gone_ = true;
    return;
  }
  if ((found & POLLIN) != 0)
    receive();
  if ((found & POLLOUT) != 0)
    send();

  json answer;
  if (job_ && job_->go_on(answer)) {
    job_.reset();
    answer_with(answer);
    send();
  }
  read_requests();
  look_at_time();
}
