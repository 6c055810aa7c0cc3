#ifndef STARTER_SYSTEMD_HANDLER_H
#define STARTER_SYSTEMD_HANDLER_H

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>

#include <cerrno>
#include <new>

/// Tells systemd that the process is ready and keeps its watchdog fed, from a timer of the reactor: a loop that stalls
/// sends nothing. systemd's client library is loaded at run time. Without it, without systemd, or without a watchdog
/// for this process, the notifier does nothing, and readiness is not reported either.
///
/// The environment, where an empty variable counts as unset:
///   LIBSYSTEMD_FILENAME  the client library to load in place of libsystemd.so.0 or else libsystemd-daemon.so.0;
///                        "0" switches the notifier off
///   SD_NOTIFY_INTERVAL   whole seconds between keep-alives; else it is a third of the watchdog's period, but never
///                        less than 3 seconds
///   WATCHDOG_USEC, WATCHDOG_PID  the watchdog's period and the process it is for; read by the client library, and
///                        here when that is too old to do so
///
/// Open and close the notifier while no other thread runs the loop of its reactor.
class Systemd_Handler : public ACE_Event_Handler
{
public:
  Systemd_Handler();
  ~Systemd_Handler() override; ///< closes

  /// Load the library, schedule the keep-alives on `r` and report readiness. Returns 0, or -1 with everything released
  /// again; the reason is logged, except when the notifier is switched off or systemd does not run. Announces the
  /// interval on standard error too. A closed handler may be opened again.
  int open(ACE_Reactor* r);

  /// Cancel the keep-alives and unload the library. Always 0, however often it is called. Logs nothing.
  int close();

protected:
  /// Do the work of open() without the release after a failure.
  int open_i(ACE_Reactor* r);

  /// Send a keep-alive with the client library's function that `act` points to. Always 0: the timer goes on.
  int handle_timeout(const ACE_Time_Value& now, const void* act) override;

  void* handle_;         ///< the client library, null while it is not loaded
  long notify_timer_id_; ///< -1 until a timer has been scheduled
};

/// Create an event handler of the class `T` and open it on the process-wide reactor. It lives until the process ends,
/// even if opening fails; start-up does not depend on it. Without memory for it, `errno` is ENOMEM. Main thread, before
/// the event loop runs.
template <typename T>
void new_event_handler()
{
  // Leak detection finds the event handler through this pointer, which is volatile because an optimiser drops
  // variables that nobody reads.
  [[maybe_unused]] static T* volatile never_deleted;

  T* const h = new (std::nothrow) T;
  if (!h) {
    errno = ENOMEM;
    return;
  }

  never_deleted = h;
  h->reference_counting_policy().value(ACE_Event_Handler::Reference_Counting_Policy::DISABLED);
  const ACE_Event_Handler_var guard(h); // does not delete the event handler, whose references are not counted

  (void)h->open(ACE_Reactor::instance()); // the process goes on without notifications
}

#endif // STARTER_SYSTEMD_HANDLER_H
