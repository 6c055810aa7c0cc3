#include "starter/host_phase.h"

#include <atomic>

#include <pthread.h>
#include <signal.h>

static std::atomic<Host_Phase> host_phase{NOT_STARTED};
static std::atomic<pthread_t> main_thread; // set before the phase; loop threads read it while it is set anew

void set_host_phase(Host_Phase phase)
{
  main_thread = pthread_self();
  host_phase = phase;
}

Host_Phase get_host_phase()
{
  return host_phase;
}

Service_Pause::Service_Pause() : former_(host_phase)
{
  set_host_phase(former_ == LOOP ? LOOP_PAUSE : POOL_PAUSE);
}

Service_Pause::~Service_Pause()
{
  set_host_phase(former_);
}

bool has_loop_threads()
{
  const Host_Phase phase = host_phase;

  return phase == SPAWNING || phase == POOL || phase == POOL_PAUSE;
}

bool is_main_thread()
{
  return host_phase == NOT_STARTED || pthread_equal(pthread_self(), main_thread) != 0;
}

void signal_main_thread(int signo)
{
  (void)pthread_kill(main_thread, signo); // it is there as long as the process is
}
