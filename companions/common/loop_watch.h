#ifndef COMPANIONS_COMMON_LOOP_WATCH_H
#define COMPANIONS_COMMON_LOOP_WATCH_H

#include <ace/Event_Handler.h>

/// Whether the loop of the process-wide reactor runs: it has not been ended, nor left for a reload. Takes no lock. Any
/// thread, in signal handlers too; only after a Loop_Watch has been started.
bool is_loop_running();

/// The kind of the process-wide reactor, such as "tp". Any thread.
const char* reactor_kind();

/// The number of threads that run the loop. In a callback of the reactor.
unsigned count_loop_threads();

/// The number of services from libraries that are loaded, or -1 while another thread loads or finalises services.
/// `is_loading` tells whether the calling thread is doing that. Never waits. Any thread.
int count_services(bool& is_loading);

/// Calls a function from the event loop as soon as it runs, and again every tenth of a second until the function
/// returns true. A loop that a service runs while it is initialised does not count. Lives as long as the process, and
/// so is not counted by the reactor.
class Loop_Watch : public ACE_Event_Handler
{
public:
  explicit Loop_Watch(bool (*on_running)());

  /// Begin to watch. Makes the reactor if there is none. Returns 0, or -1 with errno. Main thread.
  int start();

  /// Watch no longer. Main thread.
  void stop();

  int handle_timeout(const ACE_Time_Value& now, const void* act) override;

private:
  bool (*const on_running_)();
  bool is_started_ = false;
};

#endif // COMPANIONS_COMMON_LOOP_WATCH_H
