// A service with many short callbacks in one turn of the loop. The first argument is their kind: "inputs", "timers" or
// "notifications"; the second is their number, and the third the microseconds that each takes. Each time that all of
// them have been called it logs a record.

#include <ace/Event_Handler.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{
std::atomic<int> calls;
int members;
int usec;

void spend_time()
{
  const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(usec);
  while (std::chrono::steady_clock::now() < until)
    ;
  if (++calls % members == 0)
    ACE_DEBUG((LM_INFO, "The crowd has been served.\n"));
}

class Member : public ACE_Event_Handler
{
public:
  Member()
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
    reactor(ACE_Reactor::instance());
  }

  int open() { return ::pipe2(fds_, O_CLOEXEC) == 0 && ::write(fds_[1], "x", 1) == 1 ? 0 : -1; }

  ACE_HANDLE get_handle() const override { return fds_[0]; }

  int handle_input(ACE_HANDLE) override // the byte stays, so that there is always input
  {
    spend_time();
    return 0;
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    spend_time();
    return 0;
  }

  int handle_exception(ACE_HANDLE) override
  {
    spend_time();
    ACE_Time_Value no_wait(ACE_Time_Value::zero);
    (void)reactor()->notify(this, ACE_Event_Handler::EXCEPT_MASK, &no_wait);
    return 0;
  }

protected:
  ~Member() override
  {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }

private:
  int fds_[2] = {-1, -1};
};

class Crowd : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    if (argc < 3)
      return -1;
    members = ACE_OS::atoi(argv[1]);
    usec = ACE_OS::atoi(argv[2]);

    ACE_Reactor& r = *ACE_Reactor::instance();
    const ACE_Time_Value soon(0, 1000);
    Member* const one = new Member;
    crowd_.emplace_back(one);
    for (int n = 0; n < members; ++n)
      if (std::strcmp(argv[0], "timers") == 0)
        (void)r.schedule_timer(one, nullptr, soon, soon);
      else if (std::strcmp(argv[0], "notifications") == 0)
        (void)r.notify(one);
      else {
        Member* const member = new Member;
        crowd_.emplace_back(member);
        if (member->open() != 0 || r.register_handler(member, ACE_Event_Handler::READ_MASK) != 0)
          return -1;
      }
    return 0;
  }

  int fini() override
  {
    ACE_Reactor& r = *ACE_Reactor::instance();
    (void)r.cancel_timer(crowd_.front().handler());
    for (const ACE_Event_Handler_var& member : crowd_)
      if (member->get_handle() != ACE_INVALID_HANDLE)
        (void)r.remove_handler(member.handler(), ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
    crowd_.clear();
    return 0;
  }

private:
  std::vector<ACE_Event_Handler_var> crowd_;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Crowd)
