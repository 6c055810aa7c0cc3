// This library widens two gaps in the example active. A call that receives a datagram returns late, so that the
// callback is likely to be still running when a hang-up ends the service; and the port is given back late, so that such
// a callback could still acknowledge its datagram.

#include <ctime>

#include <dlfcn.h>
#include <sys/socket.h>

static void pass_msec(long msec)
{
  const timespec pause = {0, msec * 1000000};
  ::nanosleep(&pause, nullptr);
}

extern "C" ssize_t recvfrom(int fd, void* buf, size_t size, int flags, sockaddr* from, socklen_t* from_size)
{
  using recvfrom_t = ssize_t (*)(int, void*, size_t, int, sockaddr*, socklen_t*);
  static const recvfrom_t next = reinterpret_cast<recvfrom_t>(::dlsym(RTLD_NEXT, "recvfrom"));

  const ssize_t n = next(fd, buf, size, flags, from, from_size);
  if (n >= 0)
    pass_msec(2);
  return n;
}

extern "C" int dup3(int fd, int replaced, int flags) noexcept
{
  using dup3_t = int (*)(int, int, int);
  static const dup3_t next = reinterpret_cast<dup3_t>(::dlsym(RTLD_NEXT, "dup3"));

  pass_msec(10);
  return next(fd, replaced, flags);
}
