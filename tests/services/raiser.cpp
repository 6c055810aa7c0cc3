// A service that raises signals in the middle of what it does. Its first argument tells where:
//
//   init      in its first init, while services load
//   reload    in its second init, while a hang-up is served
//   callback  in a callback, which then returns
//   hold      in a callback, which returns only when the service has been finalised
//   thread    in a thread of its own, while a callback waits for it
//   fini      in its fini, after it has ended the event loop by itself
//   end       in its fini
//
// The other arguments are the numbers of the signals.

#include "scrt/log.h"

#include <ace/Event_Handler.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

namespace
{
volatile std::sig_atomic_t init_count = 0; // the numbers of calls for all objects of the class
volatile std::sig_atomic_t fini_count = 0;

using Signals = std::vector<int>;

void raise_all(const Signals& signals)
{
  for (const int signo : signals)
    (void)std::raise(signo);
}

class Callback : public ACE_Event_Handler
{
public:
  Callback(const std::string& where, const Signals& signals) : where_(where), signals_(signals)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    LOG_RECORD(LM_INFO, "Callback has begun.\n");
    if (where_ == "thread")
      std::thread(raise_all, signals_).join();
    else
      raise_all(signals_);
    while (where_ == "hold" && fini_count == 0)
      continue;
    LOG_RECORD(LM_INFO, "Callback has ended.\n");
    return 0;
  }

private:
  const std::string where_;
  const Signals signals_;
};

class Raiser : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override;
  int fini() override;

private:
  int start() const;

  std::string where_;
  Signals signals_;
};

int Raiser::init(int argc, char** argv)
{
  where_ = argc > 0 ? argv[0] : "";
  for (int i = 1; i < argc; ++i)
    signals_.push_back(ACE_OS::atoi(argv[i]));

  LOG_RECORD(LM_INFO, "Raiser comes.\n");
  const int rc = start();
  LOG_RECORD(LM_INFO, "Raiser is there.\n");
  return rc;
}

int Raiser::start() const
{
  const int times = ++init_count;
  if ((where_ == "init" && times == 1) || (where_ == "reload" && times == 2))
    raise_all(signals_);
  if (where_ == "fini")
    return ACE_Reactor::instance()->end_reactor_event_loop();
  if ((where_ != "callback" && where_ != "hold" && where_ != "thread") || times > 1)
    return 0; // the timer expires only once

  const ACE_Event_Handler_var callback(new Callback(where_, signals_));
  return ACE_Reactor::instance()->schedule_timer(callback.handler(), nullptr, ACE_Time_Value::zero) == -1 ? -1 : 0;
}

int Raiser::fini()
{
  LOG_RECORD(LM_INFO, "Raiser is gone.\n");
  ++fini_count; // after the record: in a pool, the callback that holds may be in another thread
  if (where_ == "fini" || where_ == "end")
    raise_all(signals_);
  LOG_RECORD(LM_INFO, "Raiser is finalised.\n");
  return 0;
}
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Raiser)
