#ifndef COMPANIONS_JOIN_UNTIL_H
#define COMPANIONS_JOIN_UNTIL_H

#include <pthread.h>
#include <time.h>

/// Wait until `thread` has ended, but no longer than until the monotonic clock is at `until`. Returns 0, or the number
/// of the error: ETIMEDOUT when the thread has not ended. Any thread, in signal handlers too.
inline int join_until(pthread_t thread, const timespec& until)
{
#ifdef __SANITIZE_THREAD__
  // The sanitizer knows nothing of a join by this clock: it would take the thread for one that nobody has joined, and
  // all that the thread did for unordered. It knows the join by the clock that people set.
  timespec monotonic;
  timespec end;
  (void)clock_gettime(CLOCK_MONOTONIC, &monotonic);
  (void)clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += until.tv_sec - monotonic.tv_sec + 1; // the nanoseconds would not matter
  return pthread_timedjoin_np(thread, nullptr, &end);
#else
  return pthread_clockjoin_np(thread, nullptr, CLOCK_MONOTONIC, &until);
#endif
}

#endif // COMPANIONS_JOIN_UNTIL_H
