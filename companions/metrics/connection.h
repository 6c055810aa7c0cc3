#ifndef COMPANIONS_METRICS_CONNECTION_H
#define COMPANIONS_METRICS_CONNECTION_H

#include <functional>
#include <string>

/// A client of the server: its request is read, answered, and the connection is closed. Nothing waits for the client.
class Connection
{
public:
  /// Have the socket `fd`, which does not block.
  explicit Connection(int fd, long deadline_msec) : fd_(fd), deadline_msec_(deadline_msec) {}
  ~Connection();

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int fd() const { return fd_; }

  /// The time of the monotonic clock at which the client has had its time.
  long deadline_msec() const { return deadline_msec_; }

  /// The events of poll(2) that the connection waits for.
  short events() const;

  /// Go on as far as the client lets it; `metrics` makes the content. Returns false when the connection is to be
  /// closed.
  bool go_on(const std::function<std::string()>& metrics);

private:
  enum class State { READING, WRITING, DRAINING };
  enum { MAX_REQUEST_SIZE = 8192 };

  bool read_request(const std::function<std::string()>& metrics);
  bool write_answer();
  bool drain() const;

  const int fd_;
  const long deadline_msec_;
  State state_ = State::READING;
  std::string request_;
  std::string answer_;
  std::size_t written_ = 0;
};

#endif // COMPANIONS_METRICS_CONNECTION_H
