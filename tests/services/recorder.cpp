// A service that logs a record at each step of its life, with the name that its first argument gives. With the second
// argument "fails" its initialisation fails.

#include "scrt/log.h"

#include <ace/Global_Macros.h>
#include <ace/Service_Object.h>

#include <cstring>
#include <string>

class Recorder : public ACE_Service_Object
{
public:
  ~Recorder() override { LOG_RECORD(LM_INFO, "%C is deleted.\n", name_.c_str()); }

  int init(int argc, ACE_TCHAR* argv[]) override;

  int fini() override
  {
    LOG_RECORD(LM_INFO, "%C stops.\n", name_.c_str());
    return 0;
  }

private:
  std::string name_ = "A nameless service";
};

int Recorder::init(int argc, ACE_TCHAR* argv[])
{
  if (argc > 0)
    name_ = argv[0];

  std::string arguments;
  for (int i = 1; i < argc; ++i)
    arguments += std::string(" [") + argv[i] + ']';
  LOG_RECORD(LM_INFO, "%C starts.%C\n", name_.c_str(), arguments.c_str());

  return argc > 1 && std::strcmp(argv[1], "fails") == 0 ? -1 : 0;
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Recorder)
