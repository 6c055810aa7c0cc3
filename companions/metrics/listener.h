#ifndef COMPANIONS_METRICS_LISTENER_H
#define COMPANIONS_METRICS_LISTENER_H

#include <string>

/// The socket that clients connect to: at an address and a port, or at a path.
///
/// It is no socket of the reactor, as a thread of the companion's own serves it, while the loop hangs too.
class Listener
{
public:
  Listener() = default;
  ~Listener() { close(); }

  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  /// Listen at `address`: a numeric address and a port, such as "127.0.0.1:9464" or "[::1]:9464", where port 0 takes a
  /// free one; or "unix:" and an absolute path, at which a socket that nobody listens to any more is replaced. Returns
  /// 0, or -1 with errno: EINVAL (`address` is none of these), ENAMETOOLONG, EADDRINUSE or that of another failed call.
  int open(const char* address);

  /// Listen no longer, and remove the socket at the path. Does nothing when the listener is not open.
  void close();

  /// The address as it is, with the port that was taken. Empty when the listener is not open.
  const std::string& address() const { return address_; }

  /// The next client as a socket that does not block, or -1 with errno: EAGAIN if there is none.
  int accept() const;

  int fd() const { return fd_; }

  /// Have the socket of `other`, which is not open any more afterwards.
  void take_over(Listener& other);

private:
  int open_path(const char* path);
  int open_port(const char* address);

  int fd_ = -1;
  std::string address_;
  std::string path_; ///< empty unless the socket has one
};

#endif // COMPANIONS_METRICS_LISTENER_H
