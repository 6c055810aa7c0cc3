// A service that counts as linked statically, because it is preloaded and registers before the configurator opens.

#include "scrt/log.h"

#include <ace/Global_Macros.h>
#include <ace/Service_Config.h>
#include <ace/Service_Object.h>

class Static_Service : public ACE_Service_Object
{
public:
  int init(int, ACE_TCHAR*[]) override
  {
    LOG_RECORD(LM_INFO, "The static service starts.\n");
    return 0;
  }
};

ACE_FACTORY_DEFINE(ACE_Local_Service, Static_Service)
ACE_STATIC_SVC_DEFINE(Static_Service, ACE_TEXT("Static_Service"), ACE_SVC_OBJ_T, &ACE_SVC_NAME(Static_Service),
                      ACE_Service_Type::DELETE_THIS | ACE_Service_Type::DELETE_OBJ, 0)
ACE_STATIC_SVC_REQUIRE(Static_Service)
