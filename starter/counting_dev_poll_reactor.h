#ifndef STARTER_COUNTING_DEV_POLL_REACTOR_H
#define STARTER_COUNTING_DEV_POLL_REACTOR_H

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Event_Handler.h>
#include <ace/Handle_Set.h>

/// The framework's dev_poll reactor, with a removal of event handlers that threads of its loop survive. A loop thread
/// looks an event handler up under the lock of the reactor's table and counts its reference only after it has left
/// that lock. A removal by another thread in between drops the last reference, and the loop thread calls a deleted
/// object. The loop thread holds the reactor's token from before the look-up until the reference is counted, so a
/// removal here keeps the event handler until the token has been free once.
class Counting_Dev_Poll_Reactor : public ACE_Dev_Poll_Reactor
{
public:
  // The other two forms of the framework's operation.
  using ACE_Dev_Poll_Reactor::remove_handler;

  /// Any thread, in callbacks too. An event handler without a reference count is removed as the framework does it: its
  /// owner alone knows when it may be deleted.
  int remove_handler(ACE_HANDLE handle, ACE_Reactor_Mask mask) override;
  int remove_handler(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) override;
  int remove_handler(const ACE_Handle_Set& handles, ACE_Reactor_Mask mask) override;

private:
  ACE_Event_Handler_var find_counted(ACE_HANDLE handle);
  void let_token_pass();
};

#endif // STARTER_COUNTING_DEV_POLL_REACTOR_H
