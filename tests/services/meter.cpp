// A service that tells, whenever it is loaded, how many places the framework's repository of services has, and how much
// memory of the heap is in use: unlike the size of the process, that does not depend on how the heap is cut up.

#include "scrt/log.h"

#include <ace/Service_Object.h>
#include <ace/Service_Repository.h>
#include <ace/svc_export.h>

#include <malloc.h>

namespace
{
class Meter : public ACE_Service_Object
{
public:
  int init(int, char**) override
  {
    LOG_RECORD(LM_INFO, "Places for services: %B.\n", ACE_Service_Repository::instance()->current_size());
    const struct mallinfo2 info = mallinfo2();
    LOG_RECORD(LM_INFO, "Memory in use: %B bytes.\n", info.uordblks + info.hblkhd);
    return 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Meter)
