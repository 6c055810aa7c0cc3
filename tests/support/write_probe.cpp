#include "tests/support/write_probe.h"

#include <cerrno>
#include <cstddef>

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

static bool are_slow = false;
static unsigned calls = 0; // since the writes are slow
static int write_error = 0;

// The headers of the C library may define this function as an inline function. Therefore ours has another name here,
// and the name of the library only in the object file.
extern "C" ssize_t probe_write(int fd, const void* buf, std::size_t size) __asm__("write");

ssize_t probe_write(int fd, const void* buf, std::size_t size)
{
  const int error = write_error != 0 ? write_error : are_slow && calls++ % 2 == 0 ? EINTR : 0;
  if (error != 0) {
    errno = error;
    return -1;
  }
  return syscall(SYS_write, fd, buf, are_slow && size > 1 ? 1 : size);
}

Slow_Writes::Slow_Writes()
{
  calls = 0;
  are_slow = true;
}

Slow_Writes::~Slow_Writes()
{
  are_slow = false;
}

Failing_Writes::Failing_Writes(int error)
{
  write_error = error;
}

Failing_Writes::~Failing_Writes()
{
  write_error = 0;
}
