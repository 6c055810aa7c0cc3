#include <scrt/compat_open.h>

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

int main(void)
{
  const int fd = open("/dev/null", O_RDONLY);
  const int before = fcntl(fd, F_GETFD);
  const int result = enable_fd_cloexec(fd);

  printf("enabled %d, before %d, result %d, after %d\n", o_cloexec_enabled(), before, result, fcntl(fd, F_GETFD));
  return close(fd);
}
