// This library sends a termination signal to the thread that is about to wait for events, at the last moment: the
// reactor has looked at its state, and the wait has not begun.

#include <atomic>

#include <dlfcn.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>

namespace
{
void send_once()
{
  static std::atomic<bool> sent;

  struct sigaction action;
  if (::sigaction(SIGTERM, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && !sent.exchange(true))
    ::raise(SIGTERM);
}

template <typename Function>
Function* next(const char* name)
{
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}
} // namespace

extern "C" int select(int width, fd_set* readable, fd_set* writable, fd_set* urgent, timeval* timeout)
{
  send_once();
  return next<decltype(select)>("select")(width, readable, writable, urgent, timeout);
}

extern "C" int epoll_wait(int fd, epoll_event* events, int count, int timeout)
{
  send_once();
  return next<decltype(epoll_wait)>("epoll_wait")(fd, events, count, timeout);
}
