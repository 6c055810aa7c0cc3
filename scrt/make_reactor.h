#ifndef SCRT_MAKE_REACTOR_H
#define SCRT_MAKE_REACTOR_H

/// @file
/// These declarations give reactors by the name of their kind.

#include "scrt/key_value.h"

#include <ace/Reactor.h>

#include <cerrno>
#include <memory>
#include <new>

/// A function that creates a reactor. The caller owns the reactor, and the reactor owns its implementation. Returns
/// null with `errno` ENOMEM when there is no memory for the reactor. Logs nothing: the caller knows what it asked for.
using make_reactor_t = ACE_Reactor* (*)();

/// Create a reactor over a new `Impl`, one of `ACE_Priority_Reactor`, `ACE_TP_Reactor`, `ACE_Select_Reactor` and
/// `ACE_Dev_Poll_Reactor`, with the framework's default settings: a timer queue and, where the kind has them, a
/// notification pipe of its own, no signal handler, signals masked during dispatch, waiters served first in first out.
/// An implementation that failed to open (no descriptors left) is returned all the same; the framework logs that.
/// Deleting the reactor deletes the implementation. Any thread.
template <typename Impl>
ACE_Reactor* make_reactor()
{
  Impl* const impl = new (std::nothrow) Impl;
  if (!impl) {
    errno = ENOMEM;
    return nullptr;
  }

  std::unique_ptr<Impl> t(impl);
  ACE_Reactor* const reactor = new (std::nothrow) ACE_Reactor(t.get(), true);
  if (!reactor) {
    t.reset();
    errno = ENOMEM; // set last: closing an implementation overwrites it
    return nullptr;
  }

  (void)t.release(); // from here on the reactor deletes it
  return reactor;
}

/// The factories for the names "priority", "tp", "select" and "dev_poll", in this order, and an entry with a null key
/// that ends the table. The table is initialised statically; nobody writes it.
extern Key_Value_T<make_reactor_t> make_reactor_table[5];

/// Returns the factory for the reactor kind named `type` (exact name, letter case included), or null for an unknown,
/// empty or null name. The thread-pool kind "tp" is refused, with an error record, for fewer than two `threads`: its
/// threads take turns, and a lone thread would have none to hand over to. The other kinds are returned for any count.
/// Does not touch `errno`. Any thread.
make_reactor_t get_reactor_factory(const char* type, unsigned threads);

#endif // SCRT_MAKE_REACTOR_H
