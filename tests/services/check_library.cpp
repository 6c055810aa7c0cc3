// A service library that acts when it is loaded, as a definition of the build says.

#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#ifdef AT_UNDEFINED
extern int variable_that_nobody_defines;
int* use_of_it = &variable_that_nobody_defines;
#endif

[[gnu::constructor]] static void act()
{
#if defined AT_CRASH
  std::abort();
#elif defined AT_HANG
  for (;;)
    pause();
#elif defined AT_EXIT
  std::exit(0);
#elif defined AT_TALK
  std::puts("loaded");
  std::fputs("loaded\n", stderr);
  std::fflush(stdout);
#endif
}

namespace
{
class Plain : public ACE_Service_Object
{
public:
  int init(int, char**) override
  {
    if (const char* const path = std::getenv("TESTS_INIT_WITNESS"))
      if (std::FILE* const file = std::fopen(path, "w"))
        std::fclose(file);
    return 0;
  }
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Plain)

extern "C" ACE_Local_Service_Export Plain plain_object;
Plain plain_object;
