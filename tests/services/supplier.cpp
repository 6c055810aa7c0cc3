// A service whose library has the function that the library of the service Incomplete lacks.

#include <ace/Global_Macros.h>
#include <ace/Service_Object.h>

extern "C" ACE_Local_Service_Export int function_that_nobody_defines();

extern "C" int function_that_nobody_defines()
{
  return 0;
}

class Supplier : public ACE_Service_Object
{
};

ACE_FACTORY_DEFINE(ACE_Local_Service, Supplier)
