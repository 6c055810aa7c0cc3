// A library with the name of the companion guard, which tells a number of stalls as that does, and nothing else.

#include <ace/Service_Object.h>
#include <ace/svc_export.h>

extern "C" [[gnu::visibility("default")]] unsigned long starter_guard_stalls()
{
  return 7;
}

class Fake_Guard : public ACE_Service_Object
{
};

ACE_FACTORY_DEFINE(ACE_Svc, Fake_Guard)
