#ifndef STARTER_COUNTING_DEV_POLL_REACTOR_H
#define STARTER_COUNTING_DEV_POLL_REACTOR_H

#include <ace/Reactor.h>

/// Create a reactor over the framework's dev_poll reactor, with a removal of event handlers that threads of its loop
/// survive. A loop thread looks an event handler up under the lock of the reactor's table and counts its reference only
/// after it has left that lock. A removal by another thread in between drops the last reference, and the loop thread
/// calls a deleted object. The loop thread holds the reactor's token from before the look-up until the reference is
/// counted, so a removal here keeps the event handler until the token has been free once. Event handlers are removed by
/// any thread, in callbacks too. An event handler without a reference count is removed as the framework does it: its
/// owner alone knows when it may be deleted.
///
/// In every other respect this is make_reactor<ACE_Dev_Poll_Reactor>, with the same class of the implementation. Main
/// thread.
ACE_Reactor* make_counting_dev_poll_reactor();

#endif // STARTER_COUNTING_DEV_POLL_REACTOR_H
