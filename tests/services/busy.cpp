// A service that keeps every loop thread busy. Bytes circulate through pipes for ever, each hop allocates and frees
// memory, and a timer expires all the time. The argument is the number of bytes, 8 by default.

#include <ace/Event_Handler.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{
// Loop threads may run its code when the service is deleted, so the last reference deletes it.
class Hop : public ACE_Event_Handler
{
public:
  explicit Hop(ACE_Reactor* r) : ACE_Event_Handler(r)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  int open() { return ::pipe2(fds_, O_CLOEXEC | O_NONBLOCK); }
  int push() { return ::write(fds_[1], "x", 1) == 1 ? 0 : -1; }

  ACE_HANDLE get_handle() const override { return fds_[0]; }

  int handle_input(ACE_HANDLE) override
  {
    char byte;
    if (::read(fds_[0], &byte, 1) == 1) {
      const std::string text(100 + static_cast<std::size_t>(count_++ % 4000), byte);
      return text.empty() ? -1 : push();
    }
    return 0;
  }

  int handle_timeout(const ACE_Time_Value&, const void*) override { return 0; }

protected:
  ~Hop() override
  {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }

private:
  int fds_[2] = {-1, -1};
  unsigned count_ = 0;
};

class Busy : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override;
  int fini() override;

private:
  std::vector<ACE_Event_Handler_var> hops_;
  long timer_ = -1;
};

int Busy::init(int argc, char** argv)
{
  const int count = argc > 0 ? ACE_OS::atoi(argv[0]) : 8;
  ACE_Reactor* const r = ACE_Reactor::instance();

  for (int i = 0; i < count; ++i) {
    Hop* const hop = new Hop(r);
    hops_.emplace_back(hop);
    if (hop->open() != 0 || r->register_handler(hop, ACE_Event_Handler::READ_MASK) != 0)
      return -1;
    hop->push();
  }
  const ACE_Time_Value interval(0, 100);
  timer_ = hops_.empty() ? -1 : r->schedule_timer(hops_.front().handler(), nullptr, interval, interval);
  return 0;
}

int Busy::fini()
{
  ACE_Reactor* const r = ACE_Reactor::instance();

  if (timer_ != -1)
    r->cancel_timer(timer_);
  for (const ACE_Event_Handler_var& hop : hops_)
    r->remove_handler(hop.handler(), ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
  hops_.clear();
  return 0;
}
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Busy)
