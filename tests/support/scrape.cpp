#include "tests/support/scrape.h"

#include "tests/support/command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static bool connect_to_path(int fd, const std::string& path)
{
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

static bool connect_to_port(int fd, const std::string& host_and_port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port =
      htons(static_cast<std::uint16_t>(std::atoi(host_and_port.substr(host_and_port.rfind(':') + 1).c_str())));
  return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

Scrape_Client::Scrape_Client(const std::string& address)
{
  const bool is_unix = address.rfind("unix:", 0) == 0;
  fd_ = ::socket(is_unix ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  is_connected_ = is_unix ? connect_to_path(fd_, address.substr(5)) : connect_to_port(fd_, address);
}

Scrape_Client::Scrape_Client(Scrape_Client&& other) noexcept : fd_(other.fd_), is_connected_(other.is_connected_)
{
  other.fd_ = -1;
}

Scrape_Client::~Scrape_Client()
{
  if (fd_ != -1)
    ::close(fd_);
}

bool Scrape_Client::send(std::string_view text) const
{
  return ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

std::string Scrape_Client::read_all() const
{
  std::string text;
  char part[65536];
  for (pollfd wait = {fd_, POLLIN, 0}; ::poll(&wait, 1, 60000) > 0;) {
    const ssize_t n = ::recv(fd_, part, sizeof part, 0);
    if (n <= 0)
      break;
    text.append(part, static_cast<std::size_t>(n));
  }
  return text;
}

std::string ask(const std::string& address, const std::string& request)
{
  const Scrape_Client client(address);
  return client.is_connected() && client.send(request) ? client.read_all() : "";
}

std::string metrics_address(Starter_Process& starter, unsigned count)
{
  static const std::string RECORD = "The metrics are at ";
  if (!starter.wait_for_record(RECORD, count))
    return "";
  const std::string log = starter.log();
  std::size_t at = 0;
  for (unsigned i = 0; i < count; ++i)
    at = log.find(RECORD, at) + RECORD.size();
  return log.substr(at, log.find('\n', at) - at);
}

std::string scrape(const std::string& address)
{
  const std::string answer = ask(address, "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_EQ(0u, answer.find("HTTP/1.1 200 OK\r\n")) << answer;
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? "" : answer.substr(end + 4);
}

double value_of(const std::string& metrics, const std::string& series)
{
  const std::size_t at = ('\n' + metrics).find('\n' + series + ' ');
  return at == std::string::npos ? -1 : std::atof(metrics.c_str() + at + series.size());
}

std::vector<std::string> metric_names(const std::string& metrics)
{
  std::vector<std::string> names;
  for (const std::string& line : lines_of(metrics))
    if (line.rfind("# TYPE ", 0) == 0)
      names.push_back(line.substr(7, line.find(' ', 7) - 7));
  std::sort(names.begin(), names.end());
  return names;
}
