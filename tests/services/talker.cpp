// A service that logs "NAME init." and "NAME fini.", where NAME is its first argument.

#include "scrt/log.h"

#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <string>

namespace
{
class Talker : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    name_ = argc > 0 ? argv[0] : "talker";
    LOG_RECORD(LM_INFO, "%C init.\n", name_.c_str());
    return 0;
  }

  int fini() override
  {
    LOG_RECORD(LM_INFO, "%C fini.\n", name_.c_str());
    return 0;
  }

private:
  std::string name_;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Talker)
