// This library is preloaded into a process under test. It logs the steps of the shutdown, and creates the process-wide
// reactor before main, so that the program has a reactor to replace.

#include "scrt/log.h"

#include <ace/Reactor.h>
#include <ace/Service_Config.h>

#include <dlfcn.h>

namespace
{
class First_Reactor : public ACE_Reactor
{
public:
  ~First_Reactor() override { LOG_RECORD(LM_INFO, "The first reactor is deleted.\n"); }
};

__attribute__((constructor)) void install()
{
  ACE_Reactor::instance(new First_Reactor, false);
}

int call_next(const char* name)
{
  return reinterpret_cast<int (*)()>(dlsym(RTLD_NEXT, name))();
}
} // namespace

int ACE_Service_Config::fini_svcs()
{
  LOG_RECORD(LM_INFO, "The services are finalised.\n");
  return call_next("_ZN18ACE_Service_Config9fini_svcsEv");
}

int ACE_Service_Config::close()
{
  LOG_RECORD(LM_INFO, "The configurator closes.\n");
  const int rc = call_next("_ZN18ACE_Service_Config5closeEv");
  LOG_RECORD(LM_INFO, "The configurator has closed.\n");
  return rc;
}
