// This is the least that a process can do which reports and waits for its end. It is built twice: as it is, and linked
// to the framework's library, which it does not use.

#include <csignal>

#include <unistd.h>

int main()
{
  sigset_t end;
  sigemptyset(&end);
  sigaddset(&end, SIGTERM);
  sigprocmask(SIG_BLOCK, &end, nullptr);
  if (::write(STDERR_FILENO, "is started.\n", 12) != 12)
    return 1;

  int signo = 0;
  return sigwait(&end, &signo);
}
