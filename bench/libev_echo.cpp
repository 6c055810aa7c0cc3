// The echo server on libev.

#include "bench/listen.h"

#include <ev.h>

static void echo(struct ev_loop* loop, ev_io* self, int)
{
  char buf[4096];
  const ssize_t size = recv(self->fd, buf, sizeof buf, 0);
  if (size <= 0 || send(self->fd, buf, static_cast<std::size_t>(size), MSG_NOSIGNAL) != size) {
    ev_io_stop(loop, self);
    close(self->fd);
    delete self;
  }
}

static void greet(struct ev_loop* loop, ev_io* listener, int)
{
  const int fd = accept4(listener->fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd == -1) // the client has gone again
    return;
  ev_io* const self = new ev_io;
  ev_io_init(self, echo, fd, EV_READ);
  ev_io_start(loop, self);
}

int main(int, char** argv)
{
  struct ev_loop* const loop = ev_default_loop(EVFLAG_AUTO);
  ev_io listener;
  ev_io_init(&listener, greet, listen_at(argv[1]), EV_READ);
  ev_io_start(loop, &listener);
  report();
  return ev_run(loop, 0) ? 0 : 1;
}
