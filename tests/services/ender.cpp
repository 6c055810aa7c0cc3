// A service that ends the event loop by itself and sends its own process a hang-up in the same callback. With an
// argument it does not end the loop: it takes the signal over, so that nobody handles it any more.

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <csignal>

namespace
{
class End : public ACE_Event_Handler
{
public:
  End(ACE_Reactor* r, bool takes) : ACE_Event_Handler(r), takes_(takes)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    if (!takes_)
      reactor()->end_reactor_event_loop();
    const int result = std::raise(SIGHUP);
    if (takes_)
      std::signal(SIGHUP, SIG_IGN);
    return result;
  }

private:
  const bool takes_;
};

class Ender : public ACE_Service_Object
{
public:
  int init(int argc, char**) override
  {
    ACE_Reactor* const r = ACE_Reactor::instance();
    const ACE_Event_Handler_var end(new End(r, argc > 0)); // the timer holds a reference of its own
    return r->schedule_timer(end.handler(), nullptr, ACE_Time_Value(0, 10000)) == -1 ? -1 : 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Ender)
