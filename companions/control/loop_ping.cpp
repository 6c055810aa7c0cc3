#include "companions/control/loop_ping.h"

#include <ace/Reactor.h>

#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

Loop_Ping::Loop_Ping()
{
  reference_counting_policy().value(ACE_Event_Handler::Reference_Counting_Policy::DISABLED);
}

int Loop_Ping::start()
{
  if (is_started_)
    return 0;
  if (fd_ == -1)
    fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd_ == -1)
    return -1;

  is_started_ = ACE_Reactor::instance()->register_handler(this, ACE_Event_Handler::READ_MASK) == 0;
  return is_started_ ? 0 : -1;
}

void Loop_Ping::stop()
{
  if (!is_started_)
    return;

  is_started_ = false;
  (void)ACE_Reactor::instance()->remove_handler(this, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
}

unsigned Loop_Ping::ask()
{
  const unsigned question = ++asked_;
  const std::uint64_t once = 1;
  (void)!::write(fd_, &once, sizeof once); // a descriptor that cannot count further is ready already
  return question;
}

bool Loop_Ping::has_answered(unsigned question) const
{
  return static_cast<int>(answered_ - question) >= 0;
}

int Loop_Ping::handle_input(ACE_HANDLE)
{
  std::uint64_t count;
  (void)!::read(fd_, &count, sizeof count); // in a pool, another thread may have been faster
  answered_ = asked_.load();
  return 0;
}
