#include "scrt/compat_open.h"

int enable_fd_cloexec_from_c(int fd)
{
  return enable_fd_cloexec(fd);
}

int o_cloexec_enabled_from_c(void)
{
  return o_cloexec_enabled();
}
