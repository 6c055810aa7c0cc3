#ifndef TESTS_SUPPORT_SCRAPE_H
#define TESTS_SUPPORT_SCRAPE_H

#include "tests/support/starter_process.h"

#include <string>
#include <string_view>
#include <vector>

/// A socket of a client of the companion metrics. The destructor closes it.
class Scrape_Client
{
public:
  /// Connect to `address` as the companion logs it: "127.0.0.1:PORT" or "unix:PATH".
  explicit Scrape_Client(const std::string& address);
  Scrape_Client(Scrape_Client&& other) noexcept;
  ~Scrape_Client();

  Scrape_Client(const Scrape_Client&) = delete;
  Scrape_Client& operator=(const Scrape_Client&) = delete;

  bool is_connected() const { return is_connected_; }

  /// Send `text`. False if the server has closed the connection.
  bool send(std::string_view text) const;

  /// Everything that the server sends until it closes the connection. What has come by then when a minute passes before
  /// that.
  std::string read_all() const;

private:
  int fd_;
  bool is_connected_ = false;
};

/// The answer of the server at `address` to `request`.
std::string ask(const std::string& address, const std::string& request);

/// The address in the record number `count` of `starter` that tells it. Empty if there is none.
std::string metrics_address(Starter_Process& starter, unsigned count = 1);

/// The content of /metrics at `address`. The test fails if it is refused.
std::string scrape(const std::string& address);

/// The value of the series `series`, such as `x_total{a="b"}`, in the scrape `metrics`; -1 if there is none.
double value_of(const std::string& metrics, const std::string& series);

/// The names of the metrics in `metrics`, sorted.
std::vector<std::string> metric_names(const std::string& metrics);

#endif // TESTS_SUPPORT_SCRAPE_H
