#include "starter/counting_dev_poll_reactor.h"

#include <ace/OS_Errno.h>

#include <cerrno>

// The event handler of `handle`, if it counts its references.
ACE_Event_Handler_var Counting_Dev_Poll_Reactor::find_counted(ACE_HANDLE handle)
{
  ACE_Event_Handler* const handler = find_handler(handle); // counts a reference for us
  const bool is_counted =
      handler && handler->reference_counting_policy().value() == ACE_Event_Handler::Reference_Counting_Policy::ENABLED;

  return ACE_Event_Handler_var(is_counted ? handler : nullptr);
}

// Wakes the thread that waits for events with the token. No callback runs while a thread holds it, so that this does
// not wait for one.
void Counting_Dev_Poll_Reactor::let_token_pass()
{
  const ACE_Errno_Guard errno_guard(errno);
  Token_Guard token(token_);

  (void)token.acquire(); // without a time limit it fails only for want of a lock
}

int Counting_Dev_Poll_Reactor::remove_handler(ACE_HANDLE handle, ACE_Reactor_Mask mask)
{
  const ACE_Event_Handler_var kept = find_counted(handle);

  const int result = ACE_Dev_Poll_Reactor::remove_handler(handle, mask);
  if (kept.handler())
    let_token_pass();
  return result;
}

int Counting_Dev_Poll_Reactor::remove_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask)
{
  return remove_handler(handler->get_handle(), mask);
}

int Counting_Dev_Poll_Reactor::remove_handler(const ACE_Handle_Set& handles, ACE_Reactor_Mask mask)
{
  ACE_Handle_Set_Iterator next(handles);
  for (ACE_HANDLE handle = next(); handle != ACE_INVALID_HANDLE; handle = next())
    if (remove_handler(handle, mask) == -1)
      return -1;

  return 0;
}
