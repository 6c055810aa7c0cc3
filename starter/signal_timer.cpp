#include "starter/signal_timer.h"

#include <csignal>

#include <pthread.h>
#include <unistd.h>

bool Signal_Timer::set(long msec)
{
  itimerspec when = {};
  when.it_value.tv_sec = msec / 1000;
  when.it_value.tv_nsec = msec % 1000 * 1000000;

  return is_made_ && timer_settime(timer_, 0, &when, nullptr) == 0;
}

void Signal_Timer::start(long msec)
{
  is_started_ = true;
  if (set(msec))
    return;

  // Made here and not earlier: most processes never need it, and one that went to the background has lost it.
  sigevent event = {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = signo_;
  event._sigev_un._tid = getpid(); // the main thread's id
  is_made_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
  is_started_ = set(msec);
}

bool Signal_Timer::has_rung()
{
  itimerspec left;
  if (!is_started_ || timer_gettime(timer_, &left) != 0 || left.it_value.tv_sec != 0 || left.it_value.tv_nsec != 0)
    return false;

  is_started_ = false;
  return true;
}

void Signal_Timer::stop()
{
  if (!is_started_)
    return;

  sigset_t signal;
  sigset_t old_mask;
  sigemptyset(&signal);
  sigaddset(&signal, signo_);
  (void)pthread_sigmask(SIG_BLOCK, &signal, &old_mask); // cannot fail with these arguments

  if (has_rung()) {
    // The timer's signal is pending, before those that are sent to the whole process; one that somebody sent to the
    // thread may have taken its place.
    siginfo_t info;
    const timespec no_wait = {};
    if (sigtimedwait(&signal, &info, &no_wait) == signo_ && info.si_code != SI_TIMER)
      (void)raise(signo_); // cannot fail with this argument
  } else
    (void)set(0);
  is_started_ = false;

  (void)pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
}
