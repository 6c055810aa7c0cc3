#ifndef TESTS_CLUSTER_PROBER_H
#define TESTS_CLUSTER_PROBER_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using Clock = std::chrono::steady_clock;

/// A client of the echo service that connects every 10 ms, whatever became of the connections before, and checks every
/// byte.
class Prober
{
public:
  /// The end of a connection: with the complete answer, or without.
  struct Result
  {
    Clock::time_point begin;
    Clock::time_point end;
    bool answered;
  };

  Prober(const std::string& host, unsigned short port);
  ~Prober();

  Prober(const Prober&) = delete;
  Prober& operator=(const Prober&) = delete;

  /// The connections that have ended, in the order of their ends.
  std::vector<Result> results() const;

  /// Whether a connection that began after `time` has been answered.
  bool has_answer_since(Clock::time_point time) const;

  /// The longest time without an answer from `time` on, until now. The last answer before `time` counts as its begin.
  std::chrono::duration<double> longest_gap_since(Clock::time_point time) const;

  /// The number of answers with a byte that was not sent, and of those with bytes after their end.
  unsigned wrong() const { return wrong_; }
  unsigned too_long() const { return too_long_; }

private:
  struct Connection;

  void work();
  void begin_connection(std::vector<Connection>& connections);
  bool has_ended(Connection& connection, short events);
  bool receive(Connection& connection);
  void finish(const Connection& connection);

  const std::string host_;
  const unsigned short port_;
  unsigned number_ = 0;
  std::atomic<unsigned> wrong_{0};
  std::atomic<unsigned> too_long_{0};
  std::vector<Result> results_;
  mutable std::mutex mutex_; ///< guards results_
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

#endif // TESTS_CLUSTER_PROBER_H
