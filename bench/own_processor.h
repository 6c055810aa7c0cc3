#ifndef BENCH_OWN_PROCESSOR_H
#define BENCH_OWN_PROCESSOR_H

#include <sched.h>

/// Gives the calling thread a processor of its own: processes that are started before take() run on all others, and
/// the thread runs on that one after it. Does nothing on a machine with one processor. The destructor undoes it for
/// the thread.
class Own_Processor
{
public:
  Own_Processor()
  {
    (void)sched_getaffinity(0, sizeof all_, &all_);
    CPU_ZERO(&own_);
    for (int n = 0; n < CPU_SETSIZE && CPU_COUNT(&own_) == 0; ++n)
      if (CPU_ISSET(n, &all_))
        CPU_SET(n, &own_);
    cpu_set_t others;
    CPU_XOR(&others, &all_, &own_);
    (void)sched_setaffinity(0, sizeof others, &others); // fails with one processor
  }

  ~Own_Processor() { (void)sched_setaffinity(0, sizeof all_, &all_); }

  Own_Processor(const Own_Processor&) = delete;
  Own_Processor& operator=(const Own_Processor&) = delete;

  void take() { (void)sched_setaffinity(0, sizeof own_, &own_); }

private:
  cpu_set_t all_;
  cpu_set_t own_;
};

#endif // BENCH_OWN_PROCESSOR_H
