// This library sends a termination signal while a reactor is made: when the reactor makes its notification channel, at
// the first call after the termination signal has got its handler.

#include <atomic>

#include <dlfcn.h>
#include <signal.h>

extern "C" int socketpair(int domain, int type, int protocol, int fds[2]) noexcept
{
  using socketpair_t = int (*)(int, int, int, int*);
  static const socketpair_t next = reinterpret_cast<socketpair_t>(::dlsym(RTLD_NEXT, "socketpair"));
  static std::atomic<bool> sent;

  struct sigaction action;
  if (::sigaction(SIGTERM, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && !sent.exchange(true))
    ::raise(SIGTERM);
  return next(domain, type, protocol, fds);
}
