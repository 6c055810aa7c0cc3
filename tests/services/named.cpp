// A service with a thread that does nothing and has the name that the argument gives.

#include "scrt/log.h"

#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <atomic>
#include <thread>

#include <pthread.h>
#include <unistd.h>

namespace
{
class Named : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    thread_ = std::thread([this] {
      while (!done_)
        ::usleep(1000);
    });
    pthread_setname_np(thread_.native_handle(), argc > 0 ? argv[0] : "named");
    LOG_RECORD(LM_INFO, "Thread is named.\n");
    return 0;
  }

  int fini() override
  {
    done_ = true;
    thread_.join();
    return 0;
  }

private:
  std::atomic<bool> done_{false};
  std::thread thread_;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Named)
