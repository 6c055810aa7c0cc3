// A service that has a pipe and a timer. When the pipe is readable and the timer is due at the same time, the timer's
// callback raises a hang-up, once. The next object of the service gets the same descriptors for an empty pipe and logs
// whether it is called for it.

#include "scrt/log.h"

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace
{
bool has_raised = false; // by any object of the class

class Reopener : public ACE_Service_Object
{
public:
  int init(int, char**) override;
  int fini() override;

  ACE_HANDLE get_handle() const override { return fds_[0]; }
  int handle_input(ACE_HANDLE) override;
  int handle_timeout(const ACE_Time_Value&, const void*) override;

private:
  int fds_[2] = {-1, -1};
};

int Reopener::init(int, char**)
{
  ACE_Reactor* const r = ACE_Reactor::instance();
  if (::pipe2(fds_, O_CLOEXEC | O_NONBLOCK) != 0 || r->register_handler(this, ACE_Event_Handler::READ_MASK) != 0)
    return -1;

  LOG_RECORD(LM_INFO, "Reopener has descriptor %d.\n", fds_[0]);
  if (has_raised) // long enough for the loop to come by, and a sign of that
    return r->schedule_timer(this, nullptr, ACE_Time_Value(0, 50000)) == -1 ? -1 : 0;
  if (::write(fds_[1], "x", 1) != 1)
    return -1;
  return r->schedule_timer(this, nullptr, ACE_Time_Value::zero) == -1 ? -1 : 0;
}

int Reopener::handle_timeout(const ACE_Time_Value&, const void*)
{
  if (has_raised) {
    LOG_RECORD(LM_INFO, "Reopener has waited.\n");
    return 0;
  }

  has_raised = true;
  (void)std::raise(SIGHUP);
  return 0;
}

int Reopener::handle_input(ACE_HANDLE)
{
  char byte;
  if (::read(fds_[0], &byte, 1) != 1)
    LOG_RECORD(LM_INFO, "Reopener was called for nothing.\n");
  return 0;
}

int Reopener::fini()
{
  ACE_Reactor* const r = ACE_Reactor::instance();
  r->cancel_timer(this);
  r->remove_handler(this, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
  ::close(fds_[0]);
  ::close(fds_[1]);
  return 0;
}
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Reopener)
