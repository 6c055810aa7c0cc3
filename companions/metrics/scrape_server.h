#ifndef COMPANIONS_METRICS_SCRAPE_SERVER_H
#define COMPANIONS_METRICS_SCRAPE_SERVER_H

#include "companions/metrics/connection.h"
#include "companions/metrics/listener.h"

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include <poll.h>
#include <pthread.h>

/// Answers scrapes in a thread of its own, which blocks all signals but faults.
///
/// It is written by hand as Prometheus' server for C++ gives each client one of a few threads: ten clients that
/// stand still keep a scrape waiting for many times their time limit. Here nothing waits for a client. Each has ten
/// seconds in all, and of too many the one is put out that has been there for longest.
///
/// An object serves once, from start() to stop().
class Scrape_Server
{
public:
  /// `metrics` makes the content of /metrics, in the thread of the server. It may throw std::bad_alloc.
  explicit Scrape_Server(std::string (*metrics)()) : metrics_(metrics) {}
  ~Scrape_Server();

  Scrape_Server(const Scrape_Server&) = delete;
  Scrape_Server& operator=(const Scrape_Server&) = delete;

  /// Begin to serve the clients of `listener`, which is not open any more afterwards. Returns 0, or -1 with errno. Main
  /// thread, in signal handlers too.
  int start(Listener& listener);

  /// End the thread, and wait for its end, but for a second at most: it may wait for a lock that the interrupted thread
  /// holds. Returns false if it has not ended; then the object has to stay, and ends with the thread's last client.
  /// Main thread, in signal handlers too.
  bool stop();

  /// The address of the listener; empty before start().
  const std::string& address() const { return address_; }

private:
  enum { MAX_CONNECTIONS = 64, CLIENT_MSEC = 10000, PAUSE_MSEC = 100, STOP_SEC = 1 };

  static void* run(void* arg);
  void serve();
  void wait();
  void accept_clients();
  void serve_clients();

  std::string (*const metrics_)();
  Listener listener_;
  std::string address_;
  pthread_t thread_{};
  std::atomic<bool> is_ended_{false};
  int wake_fd_ = -1;

  // Only the thread uses these.
  std::list<Connection> connections_; // the oldest first
  std::vector<pollfd> waits_;
  long accept_at_msec_ = 0;
};

#endif // COMPANIONS_METRICS_SCRAPE_SERVER_H
