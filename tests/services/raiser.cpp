// A service that raises a signal in the middle of what it does. Its argument tells where:
//
//   init      a fault while services load
//   callback  a hang-up in a callback, which then returns
//   hold      a hang-up in a callback, which returns only when the service has been finalised
//   fini      a termination in its fini, after it has ended the event loop by itself

#include "scrt/log.h"

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <csignal>
#include <string>

namespace
{
volatile std::sig_atomic_t fini_count = 0; // the number of calls for all objects of the class

class Callback : public ACE_Event_Handler
{
public:
  explicit Callback(bool holds) : holds_(holds)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    LOG_RECORD(LM_INFO, "Callback has begun.\n");
    (void)std::raise(SIGHUP);
    while (holds_ && fini_count == 0)
      continue;
    LOG_RECORD(LM_INFO, "Callback has ended.\n");
    return 0;
  }

private:
  const bool holds_;
};

class Raiser : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override;
  int fini() override;

private:
  std::string where_;
};

int Raiser::init(int argc, char** argv)
{
  where_ = argc > 0 ? argv[0] : "";
  if (where_ == "init")
    (void)std::raise(SIGSEGV);
  if (where_ == "fini")
    return ACE_Reactor::instance()->end_reactor_event_loop();
  if (fini_count > 0)
    return 0; // the timer expires only once

  const ACE_Event_Handler_var callback(new Callback(where_ == "hold"));
  return ACE_Reactor::instance()->schedule_timer(callback.handler(), nullptr, ACE_Time_Value::zero) == -1 ? -1 : 0;
}

int Raiser::fini()
{
  ++fini_count;
  LOG_RECORD(LM_INFO, "Raiser is gone.\n");
  if (where_ == "fini")
    (void)std::raise(SIGTERM);
  return 0;
}
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Raiser)
