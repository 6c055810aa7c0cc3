#include "companions/metrics/loop_lag.h"

#include <ace/Reactor.h>
#include <ace/Timer_Queue.h>

#include <algorithm>
#include <cerrno>

enum { TICK_USEC = 250000 };

Loop_Lag::Loop_Lag(void (*on_tick)()) : on_tick_(on_tick)
{
  reference_counting_policy().value(ACE_Event_Handler::Reference_Counting_Policy::DISABLED);
}

int Loop_Lag::start()
{
  if (is_started_)
    return 0;
  lag_ = starter::histogram("starter_loop_lag_seconds", "Time that a timer of the event loop fires too late.",
                            {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 60});
  if (!lag_)
    return -1;

  reactor(ACE_Reactor::instance());
  const ACE_Time_Value tick(0, TICK_USEC);
  due_ = reactor()->timer_queue()->gettimeofday() + tick;
  has_fired_ = false;
  is_started_ = reactor()->schedule_timer(this, nullptr, tick, tick) != -1;
  return is_started_ ? 0 : -1;
}

void Loop_Lag::stop()
{
  if (!is_started_)
    return;

  is_started_ = false;
  (void)reactor()->cancel_timer(this); // finds nothing if the reactor has dropped its timers
}

// The clock of the reactor may be set, and the timer then fires when it shows the time. What was not spent since the
// last time is no delay.
void Loop_Lag::observe(const ACE_Time_Value& fired)
{
  const Clock::time_point now = Clock::now();
  if (has_fired_) {
    const ACE_Time_Value late = reactor()->timer_queue()->gettimeofday() - due_;
    const double seconds = static_cast<double>(late.sec()) + static_cast<double>(late.usec()) * 1e-6;
    const double passed = std::chrono::duration<double>(now - last_).count();
    lag_->observe(std::clamp(seconds, 0.0, passed));
  }

  has_fired_ = true;
  last_ = now;
  if (fired < due_) // the clock was put back
    due_ = fired;
  while (due_ <= fired)
    due_ += ACE_Time_Value(0, TICK_USEC); // as the reactor does it
}

int Loop_Lag::handle_timeout(const ACE_Time_Value& now, const void*)
{
  if (is_observing_.test_and_set())
    return 0;
  observe(now);
  on_tick_();
  is_observing_.clear();
  return 0;
}
