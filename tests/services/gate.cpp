// A service whose init waits until the file that its argument names exists, so that a test can hold the start-up back.
// It logs a record before the wait, and one after it that tells whether the event loop has been ended meanwhile.

#include "scrt/log.h"

#include <ace/OS_NS_unistd.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/Time_Value.h>
#include <ace/svc_export.h>

namespace
{
class Gate : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    LOG_RECORD(LM_INFO, "Gate is closed.\n");
    while (argc > 0 && ACE_OS::access(argv[0], F_OK) != 0)
      ACE_OS::sleep(ACE_Time_Value(0, 1000));

    LOG_RECORD(LM_INFO, "Gate is open, loop done %d.\n", ACE_Reactor::instance()->reactor_event_loop_done());
    return 0;
  }

  int fini() override
  {
    LOG_RECORD(LM_INFO, "Gate is gone.\n");
    return 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Gate)
