#ifndef TESTS_SOAK_CLIENT_H
#define TESTS_SOAK_CLIENT_H

#include <chrono>
#include <cstddef>
#include <random>
#include <string>

/// The behaviour of a client.
enum Manner {
  WELL_BEHAVED, ///< sends, reads meanwhile, half-closes and reads to the end
  SLOW,         ///< the same, but reads little at a time
  VANISHING     ///< sends some, and is gone without having read everything
};

/// A connection to the echo service that never blocks. Its owner waits for it together with others.
class Client
{
public:
  using Clock = std::chrono::steady_clock;

  enum State { AT_WORK, DONE, BROKEN };

  /// Connect to `port` of the loopback interface. What it sends, and how much, is drawn from `random`.
  Client(unsigned short port, Manner manner, std::mt19937& random);
  ~Client();

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  int handle() const { return fd_; }

  /// The events of poll(2) to wait for now: none while a slow client rests.
  short events() const;

  /// Do what is possible after poll(2) has reported `revents`.
  State work(short revents);

  Manner manner() const { return manner_; }
  std::size_t received() const { return received_; }

  /// The reason, when it is BROKEN.
  const std::string& fault() const { return fault_; }

  /// Whether something came back that was not sent, which nothing excuses.
  bool is_garbled() const { return garbled_; }

private:
  char byte_at(std::size_t i) const { return static_cast<char>(seed_ + i * 7 + (i >> 8)); }
  State fail(const std::string& fault);
  State send_some();
  State receive_some();
  State vanish();

  const Manner manner_;
  const std::size_t seed_;
  std::size_t length_ = 0; // of what is sent
  std::size_t sent_ = 0;
  std::size_t received_ = 0;
  int fd_;
  Clock::time_point rests_until_; // a slow client
  std::string fault_;
  bool garbled_ = false;
};

#endif // TESTS_SOAK_CLIENT_H
