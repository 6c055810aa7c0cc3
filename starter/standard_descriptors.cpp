// A process that is started with a standard descriptor closed would get its number for the next file or socket that it
// opens. What writes to the standard streams would then write into the reactor's socket or into a service's file.

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

// This is the first code of the program that runs, before the static initialisers, which open descriptors already. The
// framework's library has been initialised by then and keeps none open. The descriptors are inherited by children like
// any other standard stream.
__attribute__((constructor(101))) static void open_standard_descriptors()
{
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
    if (fcntl(fd, F_GETFD) == -1 && errno == EBADF)
      (void)open("/dev/null", O_RDWR); // gets the lowest free number, which is fd; failing, there is no other way
}
