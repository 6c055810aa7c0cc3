#include "companions/guard/reactor_memory.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Priority_Reactor.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/TP_Reactor.h>

template <typename T>
static Reactor_Memory memory_of(T* reactor, bool waits_in_select)
{
  const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(dynamic_cast<void*>(reactor));

  return {begin, begin + sizeof(T), waits_in_select};
}

bool find_reactor_memory(Reactor_Memory& memory, bool& one_callback)
{
  ACE_Reactor_Impl* const impl = ACE_Reactor::instance()->implementation();
  one_callback = true;
  if (ACE_Dev_Poll_Reactor* const dev_poll = dynamic_cast<ACE_Dev_Poll_Reactor*>(impl))
    memory = memory_of(dev_poll, false);
  else if (ACE_TP_Reactor* const tp = dynamic_cast<ACE_TP_Reactor*>(impl))
    memory = memory_of(tp, true);
  else {
    one_callback = false;
    if (ACE_Priority_Reactor* const priority = dynamic_cast<ACE_Priority_Reactor*>(impl))
      memory = memory_of(priority, true);
    else if (ACE_Select_Reactor* const select = dynamic_cast<ACE_Select_Reactor*>(impl))
      memory = memory_of(select, true);
    else
      return false;
  }
  return true;
}
