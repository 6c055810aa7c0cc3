// Preloaded into a process under test: stops the process where the dynamic loader is done with the program and the
// static initialisers begin, so that a tracer that is attached there counts the program's own system calls only. The
// process goes on when it is continued.

#include <cerrno>
#include <cstring>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

__attribute__((constructor)) static void stop()
{
  // The programs that are started by this one inherit the library.
  if (std::strcmp(program_invocation_short_name, "starter") != 0)
    return;

  (void)prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0); // a process that hangs must not outlive a test that is given up
  (void)prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0); // refused where nobody restricts tracing
  (void)syscall(SYS_kill, getpid(), SIGSTOP); // raise(3) would make more calls after it, which would be counted
}
