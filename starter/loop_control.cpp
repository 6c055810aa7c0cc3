#include "starter/loop_control.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <new>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

// The values of a reactor's mark. The framework knows only the first two and takes every other for the second.
enum { RUNNING, ENDED, LEFT };

// instance() would create one. A signal handler must not: the interrupted thread may be creating it, and would replace
// the reactor whose loop has just been ended.
class Reactor_Slot : private ACE_Reactor
{
public:
  static bool is_filled() { return reactor_ != nullptr; }
};

bool has_reactor()
{
  return Reactor_Slot::is_filled();
}

class Select_Loop : private ACE_Select_Reactor
{
public:
  static std::sig_atomic_t* mark(ACE_Select_Reactor& impl) { return &(impl.*(&Select_Loop::deactivated_)); }
};

class Dev_Poll_Loop : private ACE_Dev_Poll_Reactor
{
public:
  static std::sig_atomic_t* mark(ACE_Dev_Poll_Reactor& impl) { return &(impl.*(&Dev_Poll_Loop::deactivated_)); }
  static epoll_event& pending(ACE_Dev_Poll_Reactor& impl) { return impl.*(&Dev_Poll_Loop::event_); }
};

// The mark that the reactor looks at before it waits or dispatches; null for a kind that is not known here. The
// framework's own way to set it goes through the reactor's token and its queue of notifications, each guarded by a
// plain mutex: a signal handler that interrupts their owner would wait for itself.
static std::sig_atomic_t* get_mark()
{
  ACE_Reactor_Impl* const impl = ACE_Reactor::instance()->implementation();
  if (ACE_Select_Reactor* const select = dynamic_cast<ACE_Select_Reactor*>(impl))
    return Select_Loop::mark(*select);
  if (ACE_Dev_Poll_Reactor* const dev_poll = dynamic_cast<ACE_Dev_Poll_Reactor*>(impl))
    return Dev_Poll_Loop::mark(*dev_poll);
  return nullptr;
}

bool is_loop_ended()
{
  const std::sig_atomic_t* const mark = get_mark();

  return mark ? __atomic_load_n(mark, __ATOMIC_SEQ_CST) == ENDED
              : ACE_Reactor::instance()->reactor_event_loop_done() != 0;
}

// A descriptor that the reactor watches: a byte written to it wakes the loop, and write(2) takes no lock.
class Bell : public ACE_Event_Handler
{
public:
  explicit Bell(int fd) : fd_(fd) {}

  ACE_HANDLE get_handle() const override { return fd_; }

  int handle_input(ACE_HANDLE) override
  {
    std::uint64_t count;
    (void)!::read(fd_, &count, sizeof count); // in a pool, another thread may have been faster
    return 0;
  }

private:
  const int fd_;
};

enum { NOT_HUNG = -1, CANNOT_HANG = -2 };
// A reactor of the select family serves notifications until there are none. A service that notifies all the time would
// keep it from looking at its mark for ever.
enum { NOTIFICATIONS_AT_ONCE = 100 };

static std::atomic<int> bell_fd{NOT_HUNG};

void hang_bell()
{
  // Never deleted, as signals come until the process ends. Volatile, or the optimiser drops what nobody reads.
  static Bell* volatile bell;
  static ACE_Reactor_Impl* hung_in;

  ACE_Reactor& reactor = *ACE_Reactor::instance();
  if (hung_in == reactor.implementation())
    return;
  reactor.max_notify_iterations(NOTIFICATIONS_AT_ONCE);

  if (!bell) {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd != -1)
      bell = new (std::nothrow) Bell(fd);
    if (fd != -1 && !bell)
      (void)::close(fd);
  }
  if (!bell || reactor.register_handler(bell, ACE_Event_Handler::READ_MASK) != 0) {
    bell_fd = CANNOT_HANG;
    return;
  }

  hung_in = reactor.implementation();
  bell_fd = bell->get_handle();
}

// Until the bell hangs, no loop waits that main has started, and main looks at the mark before it starts one.
static void ring_bell()
{
  const std::uint64_t once = 1;
  const int fd = bell_fd;
  if (fd >= 0)
    (void)!::write(fd, &once, sizeof once); // a bell that cannot count further rings already
  else if (fd == CANNOT_HANG) {
    ACE_Time_Value no_wait(ACE_Time_Value::zero);
    (void)ACE_Reactor::instance()->notify(nullptr, ACE_Event_Handler::NULL_MASK, &no_wait); // the same for its pipe
  }
}

void end_event_loop()
{
  if (std::sig_atomic_t* const mark = get_mark()) {
    __atomic_store_n(mark, ENDED, __ATOMIC_SEQ_CST);
    ring_bell();
  } else
    (void)ACE_Reactor::instance()->end_reactor_event_loop(); // main looks at the loop, not at this result
}

bool leave_event_loop()
{
  std::sig_atomic_t* const mark = get_mark();
  if (!mark)
    return false;

  std::sig_atomic_t running = RUNNING; // an end stays
  if (__atomic_compare_exchange_n(mark, &running, LEFT, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
    ring_bell();
  return true;
}

void stay_in_event_loop()
{
  std::sig_atomic_t left = LEFT;
  if (std::sig_atomic_t* const mark = get_mark())
    (void)__atomic_compare_exchange_n(mark, &left, RUNNING, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

// This kind of reactor keeps an event that it has fetched while it calls a timer's event handler first. It would call
// whoever has the descriptor next, who may wait for ever for something to read. If the descriptor is ready in spite of
// that, the call is right for its present owner too.
void forget_stale_event()
{
  ACE_Dev_Poll_Reactor* const impl = dynamic_cast<ACE_Dev_Poll_Reactor*>(ACE_Reactor::instance()->implementation());
  if (!impl)
    return;

  epoll_event& event = Dev_Poll_Loop::pending(*impl);
  if (event.data.fd == ACE_INVALID_HANDLE)
    return;

  pollfd ready = {event.data.fd, static_cast<short>(event.events), 0}; // the bits have the same values
  if (::poll(&ready, 1, 0) != 1)
    event.data.fd = ACE_INVALID_HANDLE;
}
