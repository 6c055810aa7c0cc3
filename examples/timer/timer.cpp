// This service does something every now and then, on a timer of the reactor. It allows any number of loop threads, and
// a hang-up at any moment.
//
// The event handler that the reactor calls is no part of the service, but an object of its own with a reference count.
// The reactor holds a reference during a call. Service and timer may therefore end while a loop thread is in the middle
// of a beat, or, with a single loop, while the signal handler that ends them has interrupted a long beat.

#include "examples/parse_number.h"

#include <ace/Event_Handler.h>
#include <ace/Get_Opt.h>
#include <ace/Global_Macros.h>
#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <cerrno>
#include <new>

enum { DEFAULT_INTERVAL_MSEC = 1000, MAX_INTERVAL_MSEC = 3600000 };

/// The event handler of the timer.
class Beat : public ACE_Event_Handler
{
public:
  explicit Beat(ACE_Reactor* reactor) : ACE_Event_Handler(reactor)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  unsigned count() const { return count_; }

  int handle_timeout(const ACE_Time_Value&, const void*) override
  {
    ACE_DEBUG((LM_INFO, "Beat %u.\n", ++count_));
    return 0;
  }

private:
  // The count is atomic: a beat that takes longer than the interval meets the next beat, on another loop thread.
  std::atomic<unsigned> count_{0};
};

/// The configuration file loads this service. Its argument "-i MSEC" is the interval.
class Timer : public ACE_Service_Object
{
public:
  int init(int argc, ACE_TCHAR* argv[]) override;
  int fini() override;

private:
  ACE_Event_Handler_var holder_; // the service's reference to the beat
  Beat* beat_ = nullptr;
};

static bool parse_interval(int argc, ACE_TCHAR* argv[], unsigned& msec)
{
  ACE_Get_Opt opt(argc, argv, "i:", 0);
  for (int c; (c = opt()) != -1;)
    if (c != 'i' || !parse_number(opt.opt_arg(), MAX_INTERVAL_MSEC, msec) || msec == 0)
      return false;
  return true;
}

int Timer::init(int argc, ACE_TCHAR* argv[])
{
  unsigned msec = DEFAULT_INTERVAL_MSEC;
  if (!parse_interval(argc, argv, msec))
    ACE_ERROR_RETURN((LM_ERROR, "Failed to start the timer: it takes -i MSEC, 1 to %d\n", MAX_INTERVAL_MSEC), -1);

  beat_ = new (std::nothrow) Beat(ACE_Reactor::instance());
  if (!beat_)
    return -1;
  holder_ = beat_;
  ACE_Time_Value interval;
  interval.msec(static_cast<int>(msec));
  if (beat_->reactor()->schedule_timer(beat_, nullptr, interval, interval) == -1)
    ACE_ERROR_RETURN((LM_ERROR, "Failed to schedule the timer, errno=%d, %m\n", errno), -1);

  ACE_DEBUG((LM_INFO, "The timer beats every %u ms.\n", msec));
  return 0;
}

int Timer::fini()
{
  // From here on no beat begins. A beat that a loop thread is in goes on, and its record may come after the record
  // below.
  (void)beat_->reactor()->cancel_timer(beat_);

  const unsigned beats = beat_->count();
  ACE_DEBUG((LM_INFO, "The timer has stopped, %u %C.\n", beats, beats == 1 ? "beat" : "beats"));
  return 0;
}

ACE_FACTORY_DEFINE(ACE_Local_Service, Timer)
