#ifndef TESTS_SUPPORT_FAKE_CONTROL_H
#define TESTS_SUPPORT_FAKE_CONTROL_H

#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// A server in place of the companion "control": a thread that answers each request line at a socket as the test says.
/// The destructor ends it and removes the socket.
class Fake_Control
{
public:
  /// Make the socket `path`. Unless `listens`, the test has another process listen at fd() before a client connects:
  /// the client then sees the credentials of that process.
  explicit Fake_Control(const std::string& path, bool listens = true);
  ~Fake_Control();

  Fake_Control(const Fake_Control&) = delete;
  Fake_Control& operator=(const Fake_Control&) = delete;

  /// Answer requests from now on with `line` and a newline.
  void answer(const std::string& line);

  /// Answer requests from now on with the bytes `data`, one after another if it is `slow`. Then close the connection,
  /// or leave it open until the client closes it.
  void send_bytes(const std::string& data, bool closes, bool slow = false);

  /// Do not serve from now on: connections wait in the queue of the socket.
  void stop_serving();

  /// The request lines so far.
  std::vector<std::string> requests() const;

  int fd() const { return fd_; }

private:
  void serve();
  void serve_client(int client);
  bool wait_for(int fd) const;

  const std::string path_;
  int fd_;
  int wake_[2]; ///< a pipe that is closed to end the thread
  mutable std::mutex mutex_;
  std::string data_;
  bool closes_ = false;
  bool slow_ = false;
  std::vector<std::string> requests_;
  std::thread thread_;
};

/// A client that connects to a socket if it has room for one more, and says nothing.
class Fake_Client
{
public:
  explicit Fake_Client(const std::string& path);
  ~Fake_Client();

  Fake_Client(const Fake_Client&) = delete;
  Fake_Client& operator=(const Fake_Client&) = delete;

  bool is_connected() const { return is_connected_; }

private:
  int fd_;
  bool is_connected_;
};

#endif // TESTS_SUPPORT_FAKE_CONTROL_H
