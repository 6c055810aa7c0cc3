// Measures an echo of 64 bytes in the program with every kind of reactor, in a bare host, and in servers on other
// libraries: the processor time that the server takes for a request, and the rate. Each connection waits for its answer
// before it asks again. Then the latency at a fixed rate: a request is due at its time whether or not the answers to
// earlier ones are there, and its latency counts from that time.
//
//   dispatch_row ROUNDS MSEC [PEER]

#include "bench/figures.h"
#include "bench/process.h"

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

enum { REQUEST_SIZE = 64, LATENCY_RATE = 5000, LATENCY_CONNECTIONS = 64 };

struct Server
{
  const char* name;
  Words words; // the port follows, or the directive of the service
  bool is_host;
};

static const Server SERVERS[] = {
    {"raw epoll", {BENCH_DIR "/epoll_echo"}, false},
    {"raw epoll, 2 threads", {BENCH_DIR "/epoll_echo"}, false},
    {"raw epoll, 4 threads", {BENCH_DIR "/epoll_echo"}, false},
    {"libevent", {BENCH_DIR "/libevent_echo"}, false},
    {"libuv", {BENCH_DIR "/libuv_echo"}, false},
    {"Asio", {BENCH_DIR "/asio_echo"}, false},
    {"Asio, 2 threads", {BENCH_DIR "/asio_echo"}, false},
    {"Asio, 4 threads", {BENCH_DIR "/asio_echo"}, false},
    {"bare select", {BENCH_DIR "/bare_host", "select", "1"}, true},
    {"bare dev_poll", {BENCH_DIR "/bare_host", "dev_poll", "1"}, true},
    {"bare dev_poll, 4 threads", {BENCH_DIR "/bare_host", "dev_poll", "4"}, true},
    {"bare priority", {BENCH_DIR "/bare_host", "priority", "1"}, true},
    {"bare tp, 4 threads", {BENCH_DIR "/bare_host", "tp", "4"}, true},
    {"starter select", {BENCH_STARTER, "--reactor", "select"}, true},
    {"starter priority", {BENCH_STARTER, "--reactor", "priority"}, true},
    {"starter dev_poll", {BENCH_STARTER, "--reactor", "dev_poll"}, true},
    {"starter dev_poll, 2 threads", {BENCH_STARTER, "--reactor", "dev_poll", "--threads", "2"}, true},
    {"starter dev_poll, 4 threads", {BENCH_STARTER, "--reactor", "dev_poll", "--threads", "4"}, true},
    {"starter tp, 2 threads", {BENCH_STARTER, "--reactor", "tp", "--threads", "2"}, true},
    {"starter tp, 4 threads", {BENCH_STARTER, "--reactor", "tp", "--threads", "4"}, true}};

struct Load
{
  const char* name;
  std::size_t busy;
  std::size_t idle;
};

static const Load LOADS[] = {{"1", 1, 0}, {"8", 8, 0}, {"64", 64, 0}, {"512", 512, 0}, {"16 busy, 500 idle", 16, 500}};

static std::uint16_t free_port(int& fd, sockaddr_in& at)
{
  fd = socket(AF_INET, SOCK_STREAM, 0);
  at = {};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof at;
  if (bind(fd, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&at), &size) != 0)
    throw std::runtime_error("no free port");
  return ntohs(at.sin_port);
}

// A server with connections to it, all of which have been answered once.
class Session
{
public:
  Session(const Server& server, std::size_t connections);
  ~Session()
  {
    for (const int fd : fds_)
      close(fd);
    close(epoll_);
  }

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Asks on the first `busy` connections for the time, and adds the rate and the processor time for a request.
  void ask(std::size_t busy, double seconds, std::vector<double>& rate, std::vector<double>& usec);

  // Asks at the fixed rate, and adds the latencies in microseconds.
  void ask_at_rate(double seconds, std::vector<double>& usec);

private:
  void request(int fd) const
  {
    static const char text[REQUEST_SIZE] = {};
    if (send(fd, text, sizeof text, MSG_NOSIGNAL) != sizeof text)
      throw std::runtime_error("the server has gone: " + process_->log());
  }

  std::size_t receive(int fd) const
  {
    char buf[4096];
    const ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n <= 0)
      throw std::runtime_error("the server has gone: " + process_->log());
    return static_cast<std::size_t>(n);
  }

  std::unique_ptr<Process> process_;
  std::vector<int> fds_;
  int epoll_ = -1;
};

Session::Session(const Server& server, std::size_t connections) : epoll_(epoll_create1(EPOLL_CLOEXEC))
{
  int probe = -1;
  sockaddr_in at;
  const std::string port = std::to_string(free_port(probe, at));
  close(probe);

  Words words = server.words;
  if (server.is_host) {
    words = words + Words{"-S", "dynamic Echo Service_Object * " BENCH_LIBRARIES "/libbench_services.so:_make_Echo()"};
  } else {
    const std::string name = server.name;
    const std::size_t comma = name.find(", ");
    words = words + Words{port, comma == std::string::npos ? "1" : name.substr(comma + 2, 1)};
  }
  process_ = std::make_unique<Process>(words, Words{"ECHO_PORT=" + port});
  process_->wait_for("is started.");

  for (std::size_t n = 0; n < connections; ++n) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    fds_.push_back(fd);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0)
      throw std::runtime_error("cannot connect: " + process_->log());
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    request(fd);
    for (std::size_t got = 0; got < REQUEST_SIZE;)
      got += receive(fd);
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = n;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
  }
}

void Session::ask(std::size_t busy, double seconds, std::vector<double>& rate, std::vector<double>& usec)
{
  const double cpu = process_->cpu_seconds();
  const double start = seconds_now();
  for (std::size_t n = 0; n < busy; ++n)
    request(fds_[n]);

  std::size_t answers = 0;
  for (std::size_t open = busy; open > 0;) {
    epoll_event events[64];
    const int count = epoll_wait(epoll_, events, 64, -1);
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

void Session::ask_at_rate(double seconds, std::vector<double>& usec)
{
  std::vector<std::deque<double>> due(fds_.size()); // of the requests that are not answered yet
  std::vector<std::size_t> bytes(fds_.size());
  const double start = seconds_now();
  const std::size_t total = static_cast<std::size_t>(seconds * LATENCY_RATE);

  for (std::size_t asked = 0, answered = 0; answered < total;) {
    for (; asked < total && start + static_cast<double>(asked) / LATENCY_RATE <= seconds_now(); ++asked) {
      const std::size_t at = asked % fds_.size();
      due[at].push_back(start + static_cast<double>(asked) / LATENCY_RATE);
      request(fds_[at]);
    }
    epoll_event events[64];
    const int count = epoll_wait(epoll_, events, 64, 0); // never sleeps: the next request would be late
    for (int i = 0; i < count; ++i) {
      const std::size_t at = events[i].data.u64;
      for (bytes[at] += receive(fds_[at]); bytes[at] >= REQUEST_SIZE; bytes[at] -= REQUEST_SIZE) {
        usec.push_back(1e6 * (seconds_now() - due[at].front()));
        due[at].pop_front();
        ++answered;
      }
    }
  }
}

int main(int argc, char** argv)
{
  const int rounds = std::atoi(argv[1]);
  const double seconds = 1e-3 * std::atoi(argv[2]);
  std::vector<Server> servers;
  for (const Server& server : SERVERS)
    if (argc < 4 || std::string(server.name).find(argv[3]) != std::string::npos || &server == SERVERS)
      servers.push_back(server);

  using Samples = std::map<std::pair<std::string, std::string>, std::vector<double>>;
  Samples usec;
  Samples rate;
  Samples latency;
  for (int n = 0; n < rounds; ++n)
    for (const Server& server : servers) {
      std::fprintf(stderr, "dispatch: round %d of %d, %s\n", n + 1, rounds, server.name);
      for (const Load& load : LOADS)
        Session(server, load.busy + load.idle)
            .ask(load.busy, seconds, rate[{load.name, server.name}], usec[{load.name, server.name}]);
      Session(server, LATENCY_CONNECTIONS).ask_at_rate(seconds, latency[{"", server.name}]);
    }

  for (const Load& load : LOADS)
    for (const Server& server : servers)
      print_figures("dispatch", std::string(load.name) + " connections: processor time for a request, us", server.name,
                    usec[{load.name, server.name}], usec[{load.name, SERVERS[0].name}]);
  for (const Load& load : LOADS)
    for (const Server& server : servers)
      print_figures("dispatch", std::string(load.name) + " connections: requests for each second", server.name,
                    rate[{load.name, server.name}], rate[{load.name, SERVERS[0].name}]);
  for (const Server& server : servers) {
    const std::vector<double>& all = latency[{"", server.name}];
    for (const auto& [text, q] : {std::pair("median", 0.5), std::pair("99 %", 0.99), std::pair("99.9 %", 0.999)})
      print_figures("latency", std::string(text) + " at 5,000 requests for each second, us", server.name,
                    {quantile(all, q)}, {quantile(latency[{"", SERVERS[0].name}], q)});
  }
}
