// A service that never lets its loop be idle: a timer is due every millisecond, and its callback works for three. Its
// fini tells whether it was called inside of a callback. Only for loops that one thread runs.

#include "scrt/log.h"

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <chrono>
#include <csignal>

namespace
{
volatile std::sig_atomic_t is_at_work = 0;
volatile std::sig_atomic_t work_count = 0;

class Work : public ACE_Event_Handler
{
public:
  Work() { reference_counting_policy().value(Reference_Counting_Policy::ENABLED); }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    is_at_work = 1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(3);
    while (std::chrono::steady_clock::now() < end)
      continue;
    is_at_work = 0;

    const std::sig_atomic_t count = work_count + 1;
    work_count = count;
    if (count == 10)
      LOG_RECORD(LM_INFO, "Toiler has work.\n");
    return 0;
  }
};

class Toiler : public ACE_Service_Object
{
public:
  int init(int, char**) override
  {
    const ACE_Time_Value interval(0, 1000);
    work_count = 0;
    timer_ = ACE_Reactor::instance()->schedule_timer(work_.handler(), nullptr, ACE_Time_Value::zero, interval);
    return timer_ == -1 ? -1 : 0;
  }

  int fini() override
  {
    LOG_RECORD(LM_INFO, "Toiler is gone %C.\n", is_at_work ? "inside of a callback" : "between callbacks");
    ACE_Reactor::instance()->cancel_timer(timer_);
    return 0;
  }

private:
  const ACE_Event_Handler_var work_{new Work};
  long timer_ = -1;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Toiler)
