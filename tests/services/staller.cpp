// A service that stalls a loop thread on command. Its argument is a FIFO: the byte 's' stalls the thread that reads it,
// the byte 'g' lets this thread go on. With a second argument it stalls the start-up as well.

#include <ace/Log_Msg.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{
class Staller : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override;
  int fini() override;

  ACE_HANDLE get_handle() const override { return fd_; }
  int handle_input(ACE_HANDLE) override;

private:
  bool is_told(char what) const;
  void wait_for_news() const;

  int fd_ = -1;
};

int Staller::init(int argc, char** argv)
{
  if (argc < 1)
    return -1;

  fd_ = ::open(argv[0], O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (argc > 1) {
    ACE_DEBUG((LM_INFO, "The staller holds the start.\n"));
    while (!is_told('g'))
      wait_for_news();
  }
  if (fd_ == -1 || ACE_Reactor::instance()->register_handler(this, ACE_Event_Handler::READ_MASK) != 0)
    return -1;

  ACE_DEBUG((LM_INFO, "The staller is there.\n"));
  return 0;
}

int Staller::fini()
{
  if (fd_ == -1)
    return 0;

  ACE_Reactor::instance()->remove_handler(this, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
  ::close(fd_);
  fd_ = -1;
  ACE_DEBUG((LM_INFO, "The staller is gone.\n"));
  return 0;
}

bool Staller::is_told(char what) const
{
  char byte;
  return ::read(fd_, &byte, 1) == 1 && byte == what;
}

void Staller::wait_for_news() const
{
  pollfd fd{fd_, POLLIN, 0};
  ::poll(&fd, 1, 50);
}

int Staller::handle_input(ACE_HANDLE)
{
  if (!is_told('s'))
    return 0;

  ACE_DEBUG((LM_INFO, "The loop is stalled.\n"));
  const ACE_Time_Value later = ACE_OS::gettimeofday() + ACE_Time_Value(3);
  bool is_later = false;
  while (!is_told('g')) {
    wait_for_news();
    if (!is_later && ACE_OS::gettimeofday() > later) {
      ACE_DEBUG((LM_INFO, "The loop has been stalled for 3 s.\n"));
      is_later = true;
    }
  }
  ACE_DEBUG((LM_INFO, "The loop goes on.\n"));
  return 0;
}
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Staller)
