// A service whose init or fini takes long. Its arguments are
//
//   WHEN       init, fini or reload: the fini of a reload, that is, of every time but the last
//   HOW        work: in short steps, with a pause between two of them; hang: in a lock that nobody gives back
//   MSEC       how long it works
//
// It logs "linger WHEN." before and "lingered WHEN." afterwards.

#include "scrt/log.h"

#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <semaphore.h>

namespace
{
using Clock = std::chrono::steady_clock;

class Lingerer : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    when_ = argc > 0 ? argv[0] : "";
    does_hang_ = argc > 1 && std::string(argv[1]) == "hang";
    msec_ = argc > 2 ? std::atoi(argv[2]) : 0;
    if (when_ == "init")
      linger();
    return 0;
  }

  int fini() override
  {
    const bool is_end = ACE_Reactor::instance()->reactor_event_loop_done() != 0;
    if (when_ == (is_end ? "fini" : "reload"))
      linger();
    return 0;
  }

private:
  void linger() const
  {
    LOG_RECORD(LM_INFO, "linger %C.\n", when_.c_str());
    if (does_hang_)
      hang();
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(msec_);
    while (Clock::now() < until)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    LOG_RECORD(LM_INFO, "lingered %C.\n", when_.c_str());
  }

  static void hang()
  {
    sem_t never;
    (void)::sem_init(&never, 0, 0);
    while (::sem_wait(&never) != 0)
      ; // a signal interrupts it
  }

  std::string when_;
  bool does_hang_ = false;
  int msec_ = 0;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Lingerer)
