// The echo server against the system calls alone, with as many threads as the second argument says. Threads share one
// set of descriptors, each of which is armed again when its request has been answered.

#include "bench/listen.h"

#include <thread>
#include <vector>

#include <sys/epoll.h>

static void serve(int epoll, int listener, unsigned once)
{
  epoll_event event = {};
  epoll_event events[64];
  for (;;) {
    const int n = epoll_wait(epoll, events, once != 0 ? 1 : 64, -1);
    for (int i = 0; i < n; ++i) {
      int fd = events[i].data.fd;
      if (fd == listener) {
        fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd == -1) // another thread was faster
          continue;
        event.events = EPOLLIN | once;
        event.data.fd = fd;
        epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
        continue;
      }

      char buf[4096];
      const ssize_t size = recv(fd, buf, sizeof buf, 0);
      if (size <= 0 || send(fd, buf, static_cast<std::size_t>(size), MSG_NOSIGNAL) != size)
        close(fd);
      else if (once != 0) {
        event.events = EPOLLIN | once;
        event.data.fd = fd;
        epoll_ctl(epoll, EPOLL_CTL_MOD, fd, &event);
      }
    }
  }
}

int main(int, char** argv)
{
  const int threads = std::atoi(argv[2]);
  const int listener = listen_at(argv[1]);
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = listener;
  epoll_ctl(epoll, EPOLL_CTL_ADD, listener, &event);
  report();

  const unsigned once = threads > 1 ? EPOLLONESHOT : 0U;
  std::vector<std::thread> pool;
  for (int n = 1; n < threads; ++n)
    pool.emplace_back(serve, epoll, listener, once);
  serve(epoll, listener, once);
}
