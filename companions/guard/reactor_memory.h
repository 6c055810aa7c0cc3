#ifndef COMPANIONS_GUARD_REACTOR_MEMORY_H
#define COMPANIONS_GUARD_REACTOR_MEMORY_H

#include <cstdint>

/// The memory of the process-wide reactor, by which a wait for events is known.
struct Reactor_Memory
{
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  bool waits_in_select = false; ///< else in epoll_wait

  bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

/// Find the memory of the process-wide reactor, and whether the reactor calls one event handler in each turn. False for
/// a reactor of a kind that is not known here. Any thread, once there is a reactor.
bool find_reactor_memory(Reactor_Memory& memory, bool& one_callback);

#endif // COMPANIONS_GUARD_REACTOR_MEMORY_H
