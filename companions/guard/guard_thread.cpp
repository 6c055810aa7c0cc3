#include "companions/guard/guard_thread.h"

#include "companions/common/own_thread.h"
#include "companions/guard/clock.h"
#include "companions/join_until.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include <pthread.h>
#include <semaphore.h>

enum { STOP_MSEC = 1000, OWNER_MSEC = 50, LATE_MSEC = 20 };

namespace
{
/// One run of the thread. The thread that outlives stop_guard_thread() keeps it.
struct Run
{
  Watch_Options options;
  starter_loops_t loops;
  std::atomic<bool> is_over{false};
  sem_t wake;
  pthread_t thread;
};
} // namespace

static Watch watch;
static std::atomic<bool> is_watched; // by a thread; one that has outlived its run may still be about to leave
static std::atomic<bool> is_exiting; // the process leaves, with its loop threads or without
static Run* run;                     // the present one, null for none

static bool is_over(const Run& r)
{
  return r.is_over || is_exiting;
}

// Returns early at the end of the run.
static void sleep_until(Run& r, long msec)
{
  const timespec until = at_msec(msec);
  while (!is_over(r) && sem_clockwait(&r.wake, CLOCK_MONOTONIC, &until) != 0 && errno == EINTR)
    ;
}

static void* watch_loops(void* arg)
{
  Run& r = *static_cast<Run*>(arg);
  (void)pthread_setname_np(pthread_self(), "guard"); // cannot fail with so short a name

  for (bool nobody = false; !is_watched.compare_exchange_strong(nobody, true); nobody = false) {
    sleep_until(r, now_msec() + OWNER_MSEC);
    if (is_over(r))
      return nullptr;
  }
  while (!is_over(r)) {
    const long next = watch.look(r.options, r.loops);
    sleep_until(r, next);
    // The process was stopped, or the machine has too much to do.
    if (const long late = now_msec() - next; late > LATE_MSEC)
      watch.skip(late);
  }
  is_watched = false;
  return nullptr;
}

int start_guard_thread(const Watch_Options& options, starter_loops_t loops)
{
  static bool is_told; // at the exit of the process
  if (!is_told)
    is_told = std::atexit([] { is_exiting = true; }) == 0;

  run = new (std::nothrow) Run;
  if (!run) {
    errno = ENOMEM;
    return -1;
  }
  run->options = options;
  run->loops = loops;
  (void)sem_init(&run->wake, 0, 0); // cannot fail with these arguments

  if (const int error = make_own_thread(run->thread, watch_loops, run); error != 0) {
    delete run;
    run = nullptr;
    errno = error;
    return -1;
  }
  return 0;
}

void stop_guard_thread()
{
  if (!run)
    return;

  run->is_over = true;
  (void)sem_post(&run->wake);
  const timespec until = at_msec(now_msec() + STOP_MSEC);
  if (join_until(run->thread, until) == 0)
    delete run;
  else
    (void)pthread_detach(run->thread); // it still uses its run
  run = nullptr;
}
