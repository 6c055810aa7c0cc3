#ifndef STARTER_SIGNAL_TIMER_H
#define STARTER_SIGNAL_TIMER_H

#include <atomic>
#include <ctime>

/// Sends the main thread a signal when a time has passed. The signal is one that the program handles for others too:
/// the handler asks has_rung() whose it is. The time is the monotonic clock's. One object for each signal.
class Signal_Timer
{
public:
  constexpr explicit Signal_Timer(int signo) : signo_(signo), timer_(), is_made_(false), is_started_(false) {}

  /// Send the signal once, in `msec` milliseconds from now; replaces an earlier start. Without a timer to be had
  /// (EAGAIN of timer_create(2)) the signal never comes. Any thread, in signal handlers too.
  void start(long msec);

  /// Whether this delivery of the signal is the timer's; true once for each start. In the handler of the signal, main
  /// thread.
  bool has_rung();

  /// No signal of the timer's is delivered from here on. Main thread, outside of signal handlers.
  void stop();

private:
  bool set(long msec);

  const int signo_;
  timer_t timer_;
  bool is_made_;
  std::atomic<bool> is_started_;
};

#endif // STARTER_SIGNAL_TIMER_H
