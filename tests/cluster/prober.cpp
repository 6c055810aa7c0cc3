#include "tests/cluster/prober.h"

#include <algorithm>
#include <cerrno>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr std::chrono::milliseconds PERIOD(10);

// A connection that is stuck in the middle counts as lost after this time.
static constexpr std::chrono::seconds PATIENCE(3);

struct Prober::Connection
{
  int fd;
  Clock::time_point begin;
  std::string request;
  std::string answer;
  bool sent;
};

Prober::Prober(const std::string& host, unsigned short port) : host_(host), port_(port), thread_(&Prober::work, this) {}

Prober::~Prober()
{
  ended_ = true;
  thread_.join();
}

void Prober::work()
{
  std::vector<Connection> connections;
  for (auto next = Clock::now(); !ended_;) {
    if (Clock::now() >= next) {
      begin_connection(connections);
      next = std::max(next + PERIOD, Clock::now()); // on a busy machine the client begins fewer
    }

    std::vector<pollfd> fds;
    for (const Connection& connection : connections)
      fds.push_back({connection.fd, static_cast<short>(connection.sent ? POLLIN : POLLOUT), 0});
    (void)poll(fds.data(), fds.size(), 1);

    std::vector<Connection> rest;
    for (std::size_t i = 0; i < fds.size(); ++i)
      if (has_ended(connections[i], fds[i].revents))
        finish(connections[i]);
      else
        rest.push_back(std::move(connections[i]));
    connections = std::move(rest);
  }
  for (const Connection& connection : connections)
    close(connection.fd);
}

void Prober::begin_connection(std::vector<Connection>& connections)
{
  const std::string number = std::to_string(++number_);
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port_);
  (void)inet_pton(AF_INET, host_.c_str(), &address.sin_addr);

  Connection connection{fd, Clock::now(), "request " + number + std::string(50, '.') + number + '\n', "", false};
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EINPROGRESS)
    connections.push_back(std::move(connection));
  else
    finish(connection);
}

bool Prober::has_ended(Connection& connection, short events)
{
  if (events == 0)
    return Clock::now() - connection.begin > PATIENCE;
  if (connection.sent)
    return receive(connection);

  const std::string& request = connection.request;
  connection.sent = true;
  if (send(connection.fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
    return true; // refused
  (void)shutdown(connection.fd, SHUT_WR);
  return false;
}

// Reads to the end of the connection, since there may be more than the answer. Returns whether this is the end.
bool Prober::receive(Connection& connection)
{
  char buf[4096];
  const ssize_t n = recv(connection.fd, buf, sizeof buf, 0);
  if (n > 0)
    connection.answer.append(buf, static_cast<std::size_t>(n));
  return n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR);
}

void Prober::finish(const Connection& connection)
{
  close(connection.fd);
  const std::string& request = connection.request;
  const std::string& answer = connection.answer;
  const std::size_t common = std::min(request.size(), answer.size());
  wrong_ += answer.compare(0, common, request, 0, common) != 0;
  too_long_ += answer.size() > request.size();

  const std::lock_guard<std::mutex> guard(mutex_);
  results_.push_back({connection.begin, Clock::now(), answer == request});
}

std::vector<Prober::Result> Prober::results() const
{
  const std::lock_guard<std::mutex> guard(mutex_);
  return results_;
}

bool Prober::has_answer_since(Clock::time_point time) const
{
  const std::vector<Result> all = results();
  return std::any_of(all.begin(), all.end(), [&](const Result& one) { return one.answered && one.begin > time; });
}

std::chrono::duration<double> Prober::longest_gap_since(Clock::time_point time) const
{
  Clock::time_point last{};
  Clock::duration longest{};
  for (const Result& one : results()) {
    if (!one.answered)
      continue;
    if (one.end > time && last != Clock::time_point{})
      longest = std::max(longest, one.end - last);
    last = one.end;
  }
  return longest;
}
