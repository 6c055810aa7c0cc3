#include "starter/event_loop.h"

#include "scrt/log.h"
#include "scrt/make_reactor.h"
#include "starter/signals.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Select_Reactor.h>
#include <ace/Thread_Manager.h>

static ACE_Reactor* create_reactor(const char* type, unsigned n)
{
  const make_reactor_t maker = get_reactor_factory(type, n);
  if (!maker) {
    LOG_RECORD(LM_ERROR, "Failed to get reactor factory by '%s'\n", type);
    return nullptr;
  }

  ACE_Reactor* const reactor = maker();
  if (!reactor) {
    LOG_RECORD(LM_ERROR, "Failed to create '%s' reactor\n", type);
    return nullptr;
  }

  if (n < 2)
    LOG_RECORD(LM_INFO, "Created '%s' reactor\n", type);
  else
    LOG_RECORD(LM_INFO, "Created '%s' reactor with %u threads\n", type, n);
  return reactor;
}

ACE_Reactor* get_reactor(const char* type, unsigned n, unsigned& threads)
{
  threads = 0;
  if (!type || !*type)
    return nullptr;

  ACE_Reactor* const reactor = create_reactor(type, n);
  if (reactor)
    threads = n; // without a reactor of its own, the process has no use for threads
  return reactor;
}

// Whether there is a process-wide reactor yet. Its accessor would make one, which is no work for a handler: the thread
// that it interrupts may be making it, and would then put its own in the place of one whose loop has been ended.
class Reactor_Slot : private ACE_Reactor
{
public:
  static bool is_filled() { return reactor_ != nullptr; }
};

bool has_reactor()
{
  return Reactor_Slot::is_filled();
}

// What end_reactor_event_loop does, without the reactor's token. That one is guarded by a plain mutex, and the thread
// that is interrupted may be inside of it: waiting for the token from here, it would wait for itself.
class Select_Loop : private ACE_Select_Reactor
{
public:
  static void end(ACE_Reactor& r, ACE_Select_Reactor& impl)
  {
    ACE_Time_Value no_wait(ACE_Time_Value::zero);

    impl.*(&Select_Loop::deactivated_) = 1;
    (void)r.notify(nullptr, ACE_Event_Handler::NULL_MASK, &no_wait); // a full pipe wakes the loop just as well
  }
};

void end_event_loop()
{
  ACE_Reactor& r = *ACE_Reactor::instance();
  if (ACE_Select_Reactor* const impl = dynamic_cast<ACE_Select_Reactor*>(r.implementation()))
    Select_Loop::end(r, *impl);
  else
    (void)r.end_reactor_event_loop(); // main looks at the loop, not at this result
}

// A loop thread of the pool. It does not come back to a loop that returned early, unlike the main thread's: kept.
static void* event_loop(void* arg)
{
  ACE_Reactor* const reactor = static_cast<ACE_Reactor*>(arg);

  reactor->owner(ACE_OS::thr_self());
  reactor->run_reactor_event_loop();
  return nullptr;
}

void run_event_loop(unsigned threads)
{
  // A termination that arrived before there was a reactor has left it to us to end the loop.
  if (is_termination_caught() && !ACE_Reactor::instance()->reactor_event_loop_done())
    ACE_Reactor::instance()->end_reactor_event_loop();

  if (threads < 2) {
    ACE_Reactor::instance()->owner(ACE_OS::thr_self());
    while (!ACE_Reactor::instance()->reactor_event_loop_done())
      ACE_Reactor::instance()->run_reactor_event_loop();
    return;
  }

  set_host_phase(POOL);
  (void)ACE_Thread_Manager::instance()->spawn_n(
      threads, event_loop, ACE_Reactor::instance(), THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED,
      ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr, nullptr, nullptr, nullptr, nullptr); // those that exist are waited for
  ACE_Thread_Manager::instance()->wait();
  set_host_phase(SINGLE);
}
