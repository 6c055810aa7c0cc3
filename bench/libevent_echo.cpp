// The echo server on libevent.

#include "bench/listen.h"

#include <event2/event.h>

static void echo(int fd, short, void* self)
{
  char buf[4096];
  const ssize_t size = recv(fd, buf, sizeof buf, 0);
  if (size <= 0 || send(fd, buf, static_cast<std::size_t>(size), MSG_NOSIGNAL) != size) {
    event_free(*static_cast<event**>(self));
    delete static_cast<event**>(self);
    close(fd);
  }
}

static void greet(int listener, short, void* base)
{
  const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  event** const self = new event*;
  *self = event_new(static_cast<event_base*>(base), fd, EV_READ | EV_PERSIST, echo, self);
  event_add(*self, nullptr);
}

int main(int, char** argv)
{
  event_base* const base = event_base_new();
  event_add(event_new(base, listen_at(argv[1]), EV_READ | EV_PERSIST, greet, base), nullptr);
  report();
  return event_base_dispatch(base);
}
