#ifndef BENCH_SESSION_H
#define BENCH_SESSION_H

#include "bench/process.h"

#include <cstdint>
#include <deque>
#include <memory>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

/// Something that echoes. A host of services loads the echo service; any other server is told its port and how many
/// threads it is to have.
struct Server
{
  std::string name;
  Words words;
  unsigned threads;
  bool is_host;
};

inline Words service(const std::string& name)
{
  return {"-S", "dynamic " + name + " Service_Object * " BENCH_LIBRARIES "/libbench_services.so:_make_" + name + "()"};
}

/// A server that runs, and connections to it, all of which have been answered once. Failures are thrown.
class Session
{
public:
  enum { REQUEST_SIZE = 64 };

  Session(const Server& server, std::size_t connections, const Words& environment = {});
  ~Session();

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Ask on the first `busy` connections for the time, each again as soon as it is answered, and add the rate of the
  /// requests and the processor time for one.
  void ask(std::size_t busy, double seconds, std::vector<double>& rate, std::vector<double>& usec);

  /// Return the latencies in microseconds of requests that are due at a fixed rate, on all connections in turns. A
  /// request counts from the time at which it was due, whether or not earlier answers were there by then.
  std::vector<double> latencies_at(int rate, double seconds);

private:
  void connect_to(const sockaddr_in& at);
  void request(int fd) const;
  std::size_t receive(int fd) const;

  std::unique_ptr<Process> process_;
  std::vector<int> fds_;
  int epoll_;
};

/// Returns a port of the loopback interface that is free, and its address in `at`.
inline std::string free_port(sockaddr_in& at)
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  at = {};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof at;
  const bool is_bound = bind(fd, reinterpret_cast<sockaddr*>(&at), sizeof at) == 0 &&
                        getsockname(fd, reinterpret_cast<sockaddr*>(&at), &size) == 0;
  close(fd);
  if (!is_bound)
    throw std::runtime_error("no free port");
  return std::to_string(ntohs(at.sin_port));
}

inline Session::Session(const Server& server, std::size_t connections, const Words& environment) : epoll_(-1)
{
  sockaddr_in at;
  const std::string port = free_port(at);
  const Words arguments = server.is_host ? service("Echo") : Words{port, std::to_string(server.threads)};
  process_ = std::make_unique<Process>(server.words + arguments, environment + Words{"ECHO_PORT=" + port});
  process_->wait_for("is started.");

  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  for (std::size_t n = 0; n < connections; ++n)
    connect_to(at);
}

inline Session::~Session()
{
  for (const int fd : fds_)
    close(fd);
  close(epoll_);
}

inline void Session::connect_to(const sockaddr_in& at)
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd == -1 || connect(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) {
    close(fd);
    throw std::runtime_error("cannot connect: " + process_->log());
  }
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.u64 = fds_.size();
  epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
  fds_.push_back(fd);

  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const timeval patience = {60, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  request(fd);
  for (std::size_t got = 0; got < REQUEST_SIZE;)
    got += receive(fd);
}

inline void Session::request(int fd) const
{
  static const char text[REQUEST_SIZE] = {};
  if (send(fd, text, sizeof text, MSG_NOSIGNAL) != sizeof text)
    throw std::runtime_error("the server has gone: " + process_->log());
}

inline std::size_t Session::receive(int fd) const
{
  char buf[4096];
  const ssize_t n = recv(fd, buf, sizeof buf, 0);
  if (n <= 0)
    throw std::runtime_error("the server has gone: " + process_->log());
  return static_cast<std::size_t>(n);
}

inline void Session::ask(std::size_t busy, double seconds, std::vector<double>& rate, std::vector<double>& usec)
{
  const double cpu = process_->cpu_seconds();
  const double start = seconds_now();
  for (std::size_t n = 0; n < busy; ++n)
    request(fds_[n]);

  std::size_t answers = 0;
  for (std::size_t open = busy; open > 0;) {
    epoll_event events[64];
    const int count = epoll_wait(epoll_, events, 64, 60000);
    if (count == 0)
      throw std::runtime_error("the server does not answer: " + process_->log());
    const bool is_over = seconds_now() - start >= seconds;
    for (int i = 0; i < count; ++i) {
      const int fd = fds_[events[i].data.u64];
      (void)receive(fd); // so few bytes come in one piece
      ++answers;
      if (is_over)
        --open;
      else
        request(fd);
    }
  }
  rate.push_back(static_cast<double>(answers) / (seconds_now() - start));
  usec.push_back(1e6 * (process_->cpu_seconds() - cpu) / static_cast<double>(answers));
}

inline std::vector<double> Session::latencies_at(int rate, double seconds)
{
  std::vector<double> usec;
  std::vector<std::deque<double>> due(fds_.size()); // of the requests that are not answered yet
  std::vector<std::size_t> bytes(fds_.size());
  const double start = seconds_now();
  const std::size_t total = static_cast<std::size_t>(seconds * rate);

  for (std::size_t asked = 0; usec.size() < total;) {
    for (; asked < total && start + static_cast<double>(asked) / rate <= seconds_now(); ++asked) {
      const std::size_t at = asked % fds_.size();
      due[at].push_back(start + static_cast<double>(asked) / rate);
      request(fds_[at]);
    }
    epoll_event events[64];
    const int count = epoll_wait(epoll_, events, 64, 0); // never sleeps: the next request would be late
    for (int i = 0; i < count; ++i) {
      const std::size_t at = events[i].data.u64;
      for (bytes[at] += receive(fds_[at]); bytes[at] >= REQUEST_SIZE; bytes[at] -= REQUEST_SIZE) {
        usec.push_back(1e6 * (seconds_now() - due[at].front()));
        due[at].pop_front();
      }
    }
  }
  return usec;
}

#endif // BENCH_SESSION_H
