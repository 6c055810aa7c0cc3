#include "starter/event_loop.h"

#include "scrt/log.h"
#include "scrt/make_reactor.h"
#include "starter/counting_dev_poll_reactor.h"
#include "starter/hang_up.h"
#include "starter/host_phase.h"
#include "starter/loop_control.h"
#include "starter/loop_turns.h"
#include "starter/main_call.h"
#include "starter/signals.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread_Manager.h>

#include <atomic>
#include <cerrno>

#include <malloc.h>

static ACE_Reactor* create_reactor(const char* type, unsigned n)
{
  const make_reactor_t maker = get_reactor_factory(type, n);
  if (!maker) {
    LOG_RECORD(LM_ERROR, "Failed to get reactor factory by '%s'\n", type);
    return nullptr;
  }

  ACE_Reactor* const reactor = maker == make_reactor<ACE_Dev_Poll_Reactor> ? make_counting_dev_poll_reactor() : maker();
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

// Until there is neither a hang-up nor a call left.
static void serve_main_thread()
{
  do
    serve_hang_ups();
  while (serve_main_call());
}

// The loop is left, and entered again, when a signal interrupts its wait, for a hang-up, and for a call.
static void run_in_main_thread()
{
  set_host_phase(LOOP);
  ACE_Reactor::instance()->owner(ACE_OS::thr_self());

  for (serve_main_thread(); !is_loop_ended(); serve_main_thread()) {
    hang_bell();
    run_counted_loop(*ACE_Reactor::instance());
  }
}

static std::atomic<unsigned> ended_threads; // those of the pool that have left the loop

// A loop thread of the pool. It does not come back to a loop that returned early, unlike the main thread's: kept.
static void* event_loop(void* arg)
{
  ACE_Reactor* const reactor = static_cast<ACE_Reactor*>(arg);

  reactor->owner(ACE_OS::thr_self());
  run_counted_loop(*reactor);
  ++ended_threads;
  wake_main_thread();
  return nullptr;
}

static void run_in_pool(unsigned threads)
{
  hang_bell();

  set_host_phase(SPAWNING);
  const int group = ACE_Thread_Manager::instance()->spawn_n(
      threads, event_loop, ACE_Reactor::instance(), THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED,
      ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr, nullptr, nullptr, nullptr, nullptr);
  if (group == -1)
    LOG_FAILED(LM_ERROR, "Failed to spawn %u event loop threads, errno=%d, %m\n", threads, errno);

  // The main thread holds nothing while it waits here, so that a hang-up may reconfigure the services where it meets
  // it. The thread manager, which also waits for the threads that are there when some could not be made, has a lock.
  set_host_phase(POOL);
  for (serve_main_thread(); group != -1 && ended_threads < threads; serve_main_thread())
    rest_main_thread();
  ACE_Thread_Manager::instance()->wait();
}

void run_event_loop(unsigned threads)
{
  // The process may wait for a long time now: the system gets back what start-up, the services' included, has freed.
  (void)malloc_trim(0); // tells whether there was any
  serve_terminations();

  if (threads < 2)
    run_in_main_thread();
  else
    run_in_pool(threads);
  set_host_phase(ENDING);
}
