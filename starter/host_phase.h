#ifndef STARTER_HOST_PHASE_H
#define STARTER_HOST_PHASE_H

/// @file
/// The state of the main thread that signal handlers have to know. Any thread, in signal handlers too, unless told
/// otherwise.

/// The present work of the main thread.
enum Host_Phase {
  NOT_STARTED, ///< nothing that signal handlers need to respect
  LOADING,     ///< it prepares the process and loads services
  LOOP,        ///< it runs the event loop
  SPAWNING,    ///< it makes the threads that run the event loop
  POOL,        ///< it only waits for the threads that run the event loop
  LOOP_PAUSE,  ///< it changes services between two callbacks of its event loop
  POOL_PAUSE,  ///< it changes services instead of waiting for the threads that run the event loop
  ENDING       ///< the event loop is over; services are finalised
};

/// Tell the signal handlers what the calling thread, the main one, does from now on. Main thread.
void set_host_phase(Host_Phase phase);

Host_Phase get_host_phase();

/// Whether there are threads of a pool that run the event loop.
bool has_loop_threads();

/// Whether the calling thread is the one that has told its phase last.
bool is_main_thread();

/// While it lives, services are changed: a hang-up that arrives is due after that. In the phases LOOP and POOL. Main
/// thread.
class Service_Pause
{
public:
  Service_Pause();
  ~Service_Pause();

  Service_Pause(const Service_Pause&) = delete;
  Service_Pause& operator=(const Service_Pause&) = delete;

private:
  const Host_Phase former_;
};

/// Send the signal `signo` to the main thread.
void signal_main_thread(int signo);

#endif // STARTER_HOST_PHASE_H
