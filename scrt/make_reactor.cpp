#include "scrt/make_reactor.h"

#include "scrt/log.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/OS_NS_string.h>
#include <ace/Priority_Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/TP_Reactor.h>

// Every kind is created with the default arguments of its constructor; the table only picks the class.
Key_Value_T<make_reactor_t> make_reactor_table[5] = {
    {"priority", make_reactor<ACE_Priority_Reactor>},
    {"tp", make_reactor<ACE_TP_Reactor>},
    {"select", make_reactor<ACE_Select_Reactor_T<ACE_Reactor_Token_T<ACE_Token>>>},
    {"dev_poll", make_reactor<ACE_Dev_Poll_Reactor>},
    {nullptr, nullptr}};

make_reactor_t get_reactor_factory(const char* type, unsigned threads)
{
  const make_reactor_t maker = get_key_value_entry(make_reactor_table, type)->value;

  if (maker && ACE_OS::strcmp(type, "tp") == 0 && threads < 2) {
    // The text has no end of line, and stays without one: people search the log for it as it is.
    LOG_FAILED(LM_ERROR, "The number of threads (%u) of thread pool reactor is less than 2", threads);
    return nullptr;
  }

  return maker;
}
