// A service that notifies the reactor all the time: every notification that is dispatched makes the next one. The
// argument is the number of notifications that circulate, 32 by default.

#include <ace/Event_Handler.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <atomic>

namespace
{
// Loop threads may run its code when the service is deleted, so the last reference deletes it.
class Circle : public ACE_Event_Handler
{
public:
  explicit Circle(ACE_Reactor* r) : ACE_Event_Handler(r)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  int push() { return reactor()->notify(this, ACE_Event_Handler::EXCEPT_MASK); }
  void stop() { is_over_ = true; }

  int handle_exception(ACE_HANDLE) override
  {
    if (!is_over_)
      push();
    return 0;
  }

private:
  std::atomic<bool> is_over_{false};
};

class Notifier : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    Circle* const circle = new Circle(ACE_Reactor::instance());
    circle_ = circle;
    for (int i = argc > 0 ? ACE_OS::atoi(argv[0]) : 32; i > 0; --i)
      if (circle->push() != 0)
        return -1;
    return 0;
  }

  int fini() override
  {
    static_cast<Circle*>(circle_.handler())->stop();
    circle_ = ACE_Event_Handler_var();
    return 0;
  }

private:
  ACE_Event_Handler_var circle_;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Notifier)
