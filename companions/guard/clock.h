#ifndef COMPANIONS_GUARD_CLOCK_H
#define COMPANIONS_GUARD_CLOCK_H

#include <time.h>

/// The time of the monotonic clock in milliseconds.
inline long now_msec()
{
  timespec now;
  (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
  return static_cast<long>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

/// The point of that clock at which it will be `msec`.
inline timespec at_msec(long msec)
{
  return {msec / 1000, msec % 1000 * 1000000};
}

#endif // COMPANIONS_GUARD_CLOCK_H
