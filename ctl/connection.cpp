#include "ctl/connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

int msec_until(Deadline deadline)
{
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(1 << 30)).count());
}

Descriptor::~Descriptor()
{
  reset();
}

void Descriptor::reset(int fd)
{
  if (fd_ != -1)
    close(fd_);
  fd_ = fd;
}

bool Connection::fail(const std::string& problem)
{
  problem_ = problem;
  return false;
}

bool Connection::fail_with_errno(const std::string& problem, int error)
{
  return fail(problem + ": " + std::strerror(error));
}

// The kernel waits in connect() as long as it would wait in send(), if the socket has more clients than it takes.
static bool limit_connect(int fd, Deadline deadline)
{
  const int msec = std::max(msec_until(deadline), 1); // 0 would be no limit
  const timeval limit{msec / 1000, msec % 1000 * 1000};
  return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

bool Connection::open(const std::string& path, Deadline deadline)
{
  path_ = path;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path)
    return fail("the path of a socket has 1 to " + std::to_string(sizeof address.sun_path - 1) + " characters");
  std::memcpy(address.sun_path, path.data(), path.size());

  fd_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (fd_.get() == -1 || !limit_connect(fd_.get(), deadline))
    return fail_with_errno("cannot make a socket", errno);
  if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    is_absent_ = error == ENOENT || error == ENOTDIR || error == ECONNREFUSED;
    return error == EAGAIN ? fail(path + " takes no connection in time")
                           : fail_with_errno("cannot connect to " + path, error);
  }

  ucred peer = {};
  socklen_t size = sizeof peer;
  if (getsockopt(fd_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    return fail_with_errno("cannot tell who listens at " + path, errno);
  pid_ = peer.pid;
  uid_ = peer.uid;
  return true;
}

bool Connection::wait_for(short events, Deadline deadline)
{
  pollfd entry{fd_.get(), events, 0};
  int n = -1;
  do
    n = poll(&entry, 1, msec_until(deadline));
  while (n < 0 && errno == EINTR);
  return n > 0 ||
         fail("the process at " + path_ + " has not answered in time; it may still do what it has been asked for");
}

bool Connection::send_line(const std::string& line, Deadline deadline)
{
  const std::string data = line + '\n';
  for (std::size_t at = 0; at < data.size();) {
    if (!wait_for(POLLOUT, deadline))
      return false;
    const ssize_t n = send(fd_.get(), data.data() + at, data.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno != EAGAIN && errno != EINTR)
      return fail_with_errno("cannot send the request to " + path_, errno);
    at += static_cast<std::size_t>(std::max(n, ssize_t(0)));
  }
  return true;
}

bool Connection::receive_line(std::string& line, Deadline deadline)
{
  line.clear();
  char buf[65536];
  while (line.size() <= MAX_ANSWER_BYTES) {
    if (!wait_for(POLLIN, deadline))
      return false;
    const ssize_t n = recv(fd_.get(), buf, sizeof buf, MSG_DONTWAIT);
    if (n == 0)
      return fail("the process at " + path_ + " has closed the connection " +
                  (line.empty() ? "without an answer" : "in the middle of its answer"));
    if (n < 0 && errno != EAGAIN && errno != EINTR)
      return fail_with_errno("cannot read the answer from " + path_, errno);
    const std::size_t size = static_cast<std::size_t>(std::max(n, ssize_t(0)));
    const void* const end = std::memchr(buf, '\n', size);
    line.append(buf, end ? static_cast<std::size_t>(static_cast<const char*>(end) - buf) : size);
    if (end)
      return true;
  }
  return fail("the answer from " + path_ + " is longer than " + std::to_string(MAX_ANSWER_BYTES) + " bytes");
}

// A process that refuses the connection, such as one that belongs to another account, may answer and close before it
// has read the request. Its answer counts then.
bool Connection::ask(const std::string& request, std::string& answer, Deadline deadline)
{
  if (send_line(request, deadline))
    return receive_line(answer, deadline);
  const std::string problem = problem_;
  return receive_line(answer, deadline) || fail(problem);
}
