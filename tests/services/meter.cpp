// A service that tells, each time it is loaded, how many bytes of the heap are in use.

#include "scrt/log.h"

#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <malloc.h>

namespace
{
class Meter : public ACE_Service_Object
{
public:
  int init(int, char**) override
  {
    LOG_RECORD(LM_INFO, "Heap in use: %B.\n", ::mallinfo2().uordblks);
    return 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Meter)
