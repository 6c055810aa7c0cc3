#ifndef COMPANIONS_GUARD_WATCH_H
#define COMPANIONS_GUARD_WATCH_H

#include "companions/common/program_note.h"
#include "companions/guard/sample.h"
#include "companions/guard/sampler.h"
#include "companions/guard/thread_call.h"

#include <cstdint>

#include <sys/types.h>

enum { MAX_THREADS = 1024 }; // those that the program counts for

struct Watch_Options
{
  long limit_msec = 1000; ///< a callback that lasts longer is a stall
  long kill_msec = 0;     ///< one that lasts as long ends the process; 0 for none
  bool counts = false;    ///< the records tell the number of the stall
};

/// Looks at the loop threads again and again, and knows how long each has been in its present callback. There is one
/// object, which outlives a reload. It takes no lock that a loop thread may hold but that of the framework's log. The
/// guard's thread.
class Watch
{
public:
  /// Look at all loop threads now, and write the records that are due. Returns the time of the next look.
  long look(const Watch_Options& options, starter_loops_t loops);

  /// Take no account of `msec` milliseconds, in which the guard got no processor: other threads got none either.
  void skip(long msec);

private:
  struct Thread
  {
    pid_t tid;
    unsigned long turns;

    std::uint64_t call;      // the key of the call in which it was found last, 0 for none
    std::uint64_t turn_wait; // the key of the call in which it waits for its turn, 0 if it does not
    bool works;              // it has not waited for events since `since`
    long since;

    long sampled; // when the sample was taken that `callback` is from, 0 if none was
    std::uint64_t callback;

    bool is_stalled; // in a callback that began before `stalled`
    bool is_recorded;
    long stalled;
    char name[NAME_SIZE];
  };

  bool find_reactor();
  Thread& find(pid_t tid, unsigned position);
  void look_at(Thread& thread, unsigned long turns);
  bool knows_to_wait(Thread& thread);
  void look_for_stall(Thread& thread);
  void look_at_stalled(Thread& thread);
  const Sample* sample(Thread& thread, std::uint64_t& callback);
  bool goes_on(const Thread& thread);
  void begin_stall(Thread& thread, long since, const Sample* sample);
  void end_stall(Thread& thread);
  void restart(Thread& thread);
  long due(const Thread& thread) const;
  long period() const;

  Watch_Options options_;
  starter_loops_t loops_;
  Reactor_Memory reactor_;
  bool one_callback_; // the reactor calls one event handler in each turn
  bool is_killing_;
  long now_;
  Thread threads_[MAX_THREADS];
  unsigned thread_count_;
  int tids_[MAX_THREADS];
  unsigned long turns_[MAX_THREADS];
};

#endif // COMPANIONS_GUARD_WATCH_H
