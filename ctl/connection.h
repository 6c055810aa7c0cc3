#ifndef CTL_CONNECTION_H
#define CTL_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <string>

#include <sys/types.h>

using Deadline = std::chrono::steady_clock::time_point;

/// The milliseconds until `deadline`, 0 if it has passed. For poll(2). Any thread.
int msec_until(Deadline deadline);

/// An answer is a list of services or of threads with their back traces. A longer one comes from no process that works.
constexpr std::size_t MAX_ANSWER_BYTES = 16U << 20;

/// A descriptor that is closed by the destructor; -1 is none.
class Descriptor
{
public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor();

  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  void reset(int fd = -1);

private:
  int fd_;
};

/// A connection to the control socket of a process. Functions that fail return false, and problem() then tells the
/// reason in one sentence. None waits beyond the deadline that it gets. Logs nothing. One thread.
class Connection
{
public:
  /// Connect to the socket at `path`. is_absent() tells whether it failed as nobody listens there.
  bool open(const std::string& path, Deadline deadline);

  /// Send the line `request` and wait for one line, which becomes `answer`, both without the newline.
  bool ask(const std::string& request, std::string& answer, Deadline deadline);

  bool is_absent() const { return is_absent_; }
  const std::string& problem() const { return problem_; }

  /// The process that listens, and its account. The id is 0 if the process is not visible here.
  pid_t pid() const { return pid_; }
  uid_t uid() const { return uid_; }

private:
  bool fail(const std::string& problem);
  bool fail_with_errno(const std::string& problem, int error);
  bool wait_for(short events, Deadline deadline);
  bool send_line(const std::string& line, Deadline deadline);
  bool receive_line(std::string& line, Deadline deadline);

  Descriptor fd_;
  std::string path_;
  std::string problem_;
  bool is_absent_ = false;
  pid_t pid_ = 0;
  uid_t uid_ = 0;
};

#endif // CTL_CONNECTION_H
