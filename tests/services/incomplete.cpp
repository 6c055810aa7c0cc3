// A service that calls a function that no library has.

#include <ace/Global_Macros.h>
#include <ace/Service_Object.h>

extern "C" int function_that_nobody_defines();

class Incomplete : public ACE_Service_Object
{
public:
  int init(int, ACE_TCHAR*[]) override { return function_that_nobody_defines(); }
};

ACE_FACTORY_DEFINE(ACE_Local_Service, Incomplete)
