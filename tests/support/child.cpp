#include "tests/support/child.h"

#include <stdexcept>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr unsigned NOBODY = 65534;

static bool write_all(int fd, const std::string& text)
{
  for (std::size_t at = 0; at < text.size();) {
    const ssize_t n = write(fd, text.data() + at, text.size() - at);
    if (n <= 0)
      return false;
    at += static_cast<std::size_t>(n);
  }
  return true;
}

Child::Child(const std::function<std::string()>& work, bool unprivileged)
{
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe");

  pid_ = fork();
  if (pid_ == 0) {
    if (unprivileged && geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(NOBODY) != 0 || setuid(NOBODY) != 0))
      _exit(126);
    _exit(write_all(fds[1], work()) ? 0 : 125);
  }

  close(fds[1]);
  fd_ = fds[0];
}

Child::~Child()
{
  close(fd_);
  if (pid_ > 0)
    waitpid(pid_, nullptr, 0);
}

std::string Child::result()
{
  std::string text;
  char buf[4096];
  for (ssize_t n; (n = read(fd_, buf, sizeof buf)) > 0;)
    text.append(buf, static_cast<std::size_t>(n));

  int status = -1;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return status == 0 ? text : "";
}
