#ifndef COMPANIONS_METRICS_LOOP_LAG_H
#define COMPANIONS_METRICS_LOOP_LAG_H

#include <starter/metrics.h>

#include <ace/Event_Handler.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <chrono>

/// A timer of the reactor that observes how late it fires, four times a second, in the metric
/// starter_loop_lag_seconds. The time before the loop runs does not count. Lives as long as the process, and so is not
/// counted by the reactor.
class Loop_Lag : public ACE_Event_Handler
{
public:
  /// `on_tick` is called each time in the thread that runs the loop.
  explicit Loop_Lag(void (*on_tick)());

  /// Set the timer, if it is not set. Makes the reactor if there is none. Returns 0, or -1 with errno. Main thread.
  int start();

  /// Cancel the timer. Main thread.
  void stop();

  int handle_timeout(const ACE_Time_Value& now, const void* act) override;

private:
  using Clock = std::chrono::steady_clock;

  void observe(const ACE_Time_Value& fired);

  void (*const on_tick_)();
  starter::Histogram* lag_ = nullptr;
  bool is_started_ = false;
  std::atomic_flag is_observing_ = ATOMIC_FLAG_INIT; // two threads of a pool may come at once

  ACE_Time_Value due_; // in the time of the reactor
  bool has_fired_ = false;
  Clock::time_point last_;
};

#endif // COMPANIONS_METRICS_LOOP_LAG_H
