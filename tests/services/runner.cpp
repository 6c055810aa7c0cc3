// A service whose init runs the event loop of the process itself, until the loop is done. With an argument it waits
// until the file of this name exists before it looks for the reactor.

#include "scrt/log.h"

#include <ace/OS_NS_unistd.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/Time_Value.h>
#include <ace/svc_export.h>

namespace
{
class Runner : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    LOG_RECORD(LM_INFO, "Runner comes.\n");
    while (argc > 0 && ACE_OS::access(argv[0], F_OK) != 0)
      ACE_OS::sleep(ACE_Time_Value(0, 1000));

    while (!ACE_Reactor::instance()->reactor_event_loop_done())
      ACE_Reactor::instance()->run_reactor_event_loop(); // a signal interrupts it
    LOG_RECORD(LM_INFO, "Runner has left the loop.\n");
    return 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Runner)
