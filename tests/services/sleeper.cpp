// A service whose callback sleeps in system calls until the service has been finalised, and half a second longer. The
// callback counts how often its sleep was interrupted.

#include "scrt/log.h"

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace
{
volatile std::sig_atomic_t init_count = 0; // the numbers of calls for all objects of the class
volatile std::sig_atomic_t fini_count = 0;

class Sleep : public ACE_Event_Handler
{
public:
  Sleep() { reference_counting_policy().value(Reference_Counting_Policy::ENABLED); }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    LOG_RECORD(LM_INFO, "Sleeper sleeps.\n");
    unsigned interrupted = 0;
    while (fini_count == 0)
      interrupted += sleep_interrupted({60, 0}) ? 1 : 0;
    for (timespec rest = {0, 500000000}; sleep_interrupted(rest, &rest);)
      ++interrupted;
    LOG_RECORD(LM_INFO, "Sleeper was interrupted %u times.\n", interrupted);
    return 0;
  }

private:
  static bool sleep_interrupted(const timespec& time, timespec* rest = nullptr)
  {
    return ::nanosleep(&time, rest) != 0 && errno == EINTR;
  }
};

class Sleeper : public ACE_Service_Object
{
public:
  int init(int, char**) override
  {
    LOG_RECORD(LM_INFO, "Sleeper init.\n");
    ++init_count;
    if (init_count > 1)
      return 0; // it sleeps only once

    const ACE_Event_Handler_var sleep(new Sleep);
    return ACE_Reactor::instance()->schedule_timer(sleep.handler(), nullptr, ACE_Time_Value::zero) == -1 ? -1 : 0;
  }

  int fini() override
  {
    ++fini_count;
    return 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Sleeper)
