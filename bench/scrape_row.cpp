// Measures a hundred scrapes a second against the echo of 64 bytes in one process: the processor time of a scrape, and
// the rate of the echo and the processor time of the process for a request, with the scrapes and without.
//
//   scrape_row ROUNDS MSEC

#include "bench/figures.h"
#include "bench/process.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

enum { REQUEST_SIZE = 64, CLIENTS = 8, SCRAPES_PER_SECOND = 100 };

static const char SCRAPE[] = "GET /metrics HTTP/1.1\r\n\r\n";

// A socket that is connected to the port of the process.
class Connection
{
public:
  explicit Connection(std::uint16_t port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
  {
    sockaddr_in at = {};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    at.sin_port = htons(port);
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0)
      throw std::runtime_error("cannot connect");
  }

  ~Connection() { close(fd_); }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void send_text(const char* text, std::size_t size) const
  {
    if (send(fd_, text, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
      throw std::runtime_error("the server has gone");
  }

  // Reads `size` bytes, or up to the end.
  std::size_t receive(std::size_t size) const
  {
    std::size_t got = 0;
    char text[4096];
    for (ssize_t n = 1; got < size && n > 0; got += static_cast<std::size_t>(std::max<ssize_t>(n, 0)))
      n = recv(fd_, text, sizeof text, 0);
    return got;
  }

private:
  int fd_;
};

// The process with the echo and the companion, and their ports.
struct Server
{
  Server()
      : process({BENCH_STARTER, "--reactor", "dev_poll", "-S",
                 "dynamic Metrics Service_Object * " BENCH_METRICS ":_make_Metrics() \"-l 127.0.0.1:0\"", "-S",
                 "dynamic Echo Service_Object * " BENCH_LIBRARIES "/libbench_services.so:_make_Echo()"},
                {"ECHO_PORT=" + std::to_string(echo_port)})
  {
    process.wait_for("is started.");
    const std::string& log = process.log();
    metrics_port = static_cast<std::uint16_t>(std::atoi(log.c_str() + log.find("127.0.0.1:") + 10));
  }

  static std::uint16_t free_port()
  {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = {};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    (void)bind(fd, reinterpret_cast<sockaddr*>(&at), sizeof at);
    (void)getsockname(fd, reinterpret_cast<sockaddr*>(&at), &size);
    close(fd);
    return ntohs(at.sin_port);
  }

  const std::uint16_t echo_port = free_port();
  std::uint16_t metrics_port = 0;
  Process process;
};

static void scrape(const Server& server)
{
  const Connection client(server.metrics_port);
  client.send_text(SCRAPE, sizeof SCRAPE - 1);
  if (client.receive(std::size_t{1} << 30) < 1000)
    throw std::runtime_error("no metrics");
}

static void scrape_at_rate(const Server& server, const std::atomic<bool>& is_over)
{
  const double start = seconds_now();
  for (int n = 1; !is_over; ++n) {
    scrape(server);
    const double rest = start + static_cast<double>(n) / SCRAPES_PER_SECOND - seconds_now();
    if (rest > 0)
      std::this_thread::sleep_for(std::chrono::duration<double>(rest));
  }
}

static void echo(const Server& server, const std::atomic<bool>& is_over, std::atomic<unsigned long>& answers)
{
  static const char text[REQUEST_SIZE] = {};
  const Connection client(server.echo_port);
  while (!is_over) {
    client.send_text(text, sizeof text);
    (void)client.receive(sizeof text);
    ++answers;
  }
}

// Adds the rate of the echo, and the processor time of the process for a request.
static void measure(const Server& server, bool with_scrapes, double seconds, std::vector<double>& rate,
                    std::vector<double>& usec)
{
  std::atomic<bool> is_over{false};
  std::atomic<unsigned long> answers{0};
  const double cpu = server.process.cpu_seconds();
  std::vector<std::thread> threads;
  for (int n = 0; n < CLIENTS; ++n)
    threads.emplace_back([&] { echo(server, is_over, answers); });
  if (with_scrapes)
    threads.emplace_back([&] { scrape_at_rate(server, is_over); });
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  is_over = true;
  for (std::thread& thread : threads)
    thread.join();

  rate.push_back(static_cast<double>(answers) / seconds);
  usec.push_back(1e6 * (server.process.cpu_seconds() - cpu) / static_cast<double>(answers));
}

int main(int argc, char* argv[])
{
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
  const double seconds = argc > 2 ? std::atoi(argv[2]) / 1000.0 : 1;
  const Server server;

  std::vector<double> scrape_usec;
  std::vector<double> rate[2];
  std::vector<double> usec[2];
  for (int round = 0; round < rounds; ++round) {
    const double cpu = server.process.cpu_seconds();
    for (int n = 0; n < SCRAPES_PER_SECOND; ++n)
      scrape(server);
    scrape_usec.push_back(1e6 * (server.process.cpu_seconds() - cpu) / SCRAPES_PER_SECOND);
    for (const bool with_scrapes : {false, true})
      measure(server, with_scrapes, seconds, rate[with_scrapes], usec[with_scrapes]);
  }

  print_figures("metrics", "processor time, us", "scrape", scrape_usec);
  print_figures("metrics", "echo, requests/s", "without scrapes", rate[0]);
  print_figures("metrics", "echo, requests/s", "100 scrapes/s", rate[1], rate[0]);
  print_figures("metrics", "processor time of a request, us", "without scrapes", usec[0]);
  print_figures("metrics", "processor time of a request, us", "100 scrapes/s", usec[1], usec[0]);
}
