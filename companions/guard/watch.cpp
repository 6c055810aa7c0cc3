// The counters of turns tell at almost no cost that a loop goes on. Only a thread whose counter stands still is looked
// at: the system tells whether it waits for events, in the reactor's own memory. A signal goes only to a thread that
// does not, and tells with its stack whether the thread waits for its turn, and which callback it is in.

#include "companions/guard/watch.h"

#include "companions/guard/clock.h"
#include "companions/guard/judge.h"
#include "companions/guard/reactor_memory.h"
#include "companions/guard/stalls.h"
#include "companions/guard/thread_call.h"

#include <algorithm>
#include <csignal>

static const std::uint64_t MUTE = ~std::uint64_t(0); // in place of a callback: the thread takes no sample

enum { LOOKS = 4, MIN_PERIOD_MSEC = 5 }; // while a callback lasts as long as it may

long Watch::period() const
{
  return std::max<long>(options_.limit_msec / LOOKS, MIN_PERIOD_MSEC);
}

// A service may have replaced the reactor. One of a kind that is not known here is not watched.
bool Watch::find_reactor()
{
  if (!find_reactor_memory(reactor_, one_callback_))
    return false;
  set_reactor_memory(reactor_);
  return true;
}

// ---- One thread

void Watch::restart(Thread& thread)
{
  thread.works = false;
  thread.sampled = 0;
}

bool Watch::goes_on(const Thread& thread)
{
  int tids[MAX_THREADS];
  unsigned long turns[MAX_THREADS];
  const unsigned count = loops_(tids, turns, MAX_THREADS);
  for (unsigned i = 0; i < count; ++i)
    if (tids[i] == thread.tid)
      return turns[i] == thread.turns;
  return false;
}

// Null if the thread is in no callback or takes no sample; `callback` is 0 only for the first of these.
const Sample* Watch::sample(Thread& thread, std::uint64_t& callback)
{
  const Sample* const taken = take_sample(thread.tid);
  callback = MUTE;
  if (!taken)
    return nullptr;

  const Verdict verdict = judge(*taken);
  callback = verdict.callback;
  if (!verdict.is_waiting)
    return taken;

  // The call that the signal has interrupted goes on. Without the right to ask for it, the present state has to do.
  const Thread_Call call = read_thread_call(thread.tid, reactor_);
  thread.turn_wait = thread.call != 0 ? thread.call : call.doing == Doing::RUNS ? call.key : 0;
  restart(thread);
  return nullptr;
}

void Watch::begin_stall(Thread& thread, long since, const Sample* sample)
{
  thread.is_stalled = true;
  thread.stalled = since;
  read_thread_name(thread.tid, thread.name);
  thread.is_recorded = report_stall(thread.tid, thread.name, now_ - since, sample, options_.counts);
}

void Watch::end_stall(Thread& thread)
{
  if (thread.is_stalled)
    report_return(thread.tid, thread.name, now_ - thread.stalled, thread.is_recorded);
  thread.is_stalled = false;
}

// A turn that lasts is not enough: the thread may have waited for its turn for most of the time, or have been in many
// callbacks. Two samples of the same callback are needed that lie as far apart as a callback may last.
void Watch::look_for_stall(Thread& thread)
{
  if (now_ < due(thread))
    return;

  std::uint64_t callback;
  const Sample* const taken = sample(thread, callback);
  if (!thread.works || !goes_on(thread))
    return;
  if (thread.sampled != 0 && callback != 0 && callback == thread.callback)
    begin_stall(thread, thread.sampled, taken);
  if (!thread.is_stalled || thread.sampled == 0)
    thread.sampled = now_;
  thread.callback = callback;
}

// The end of a callback does not show where the reactor goes on to the next one in the same turn.
void Watch::look_at_stalled(Thread& thread)
{
  const bool kills = options_.kill_msec != 0 && !is_killing_ && now_ - thread.stalled >= options_.kill_msec;
  if (!one_callback_ && (kills || now_ - thread.sampled >= options_.limit_msec)) {
    std::uint64_t callback;
    (void)sample(thread, callback);
    const bool is_known = callback != MUTE && thread.callback != MUTE;
    thread.sampled = now_;
    if ((is_known && callback != thread.callback) || !goes_on(thread)) {
      end_stall(thread);
      thread.callback = callback;
      thread.since = now_;
      return;
    }
  }

  if (kills && goes_on(thread)) {
    is_killing_ = true; // a second one would disturb the record of the first
    signal_thread(thread.tid, SIGABRT);
  }
}

// Whether the thread is known to wait without a signal.
bool Watch::knows_to_wait(Thread& thread)
{
  const Thread_Call call = read_thread_call(thread.tid, reactor_);
  thread.call = call.doing == Doing::BLOCKS ? call.key : 0;
  const bool waits_for_turn = thread.turn_wait != 0 && thread.turn_wait == call.key;
  if (!waits_for_turn)
    thread.turn_wait = 0;
  return waits_for_turn || call.doing == Doing::WAITS_FOR_EVENTS;
}

void Watch::look_at(Thread& thread, unsigned long turns)
{
  if (thread.turns != turns) {
    end_stall(thread);
    restart(thread);
    thread.turns = turns;
    thread.turn_wait = 0;
  } else if (knows_to_wait(thread)) {
    end_stall(thread);
    restart(thread);
  } else if (!thread.works) {
    thread.works = true;
    thread.since = now_;
  } else if (thread.is_stalled)
    look_at_stalled(thread);
  else
    look_for_stall(thread);
}

// ---- All threads

// A thread keeps its position as long as no other one ends.
Watch::Thread& Watch::find(pid_t tid, unsigned position)
{
  if (position < thread_count_ && threads_[position].tid == tid)
    return threads_[position];
  for (unsigned i = 0; i < thread_count_; ++i)
    if (threads_[i].tid == tid)
      return threads_[i];

  Thread& thread = threads_[thread_count_++];
  thread = Thread();
  thread.tid = tid;
  return thread;
}

// When the thread is worth a closer look, if it is to be looked at at all.
long Watch::due(const Thread& thread) const
{
  if (thread.is_stalled)
    return thread.stalled + options_.kill_msec;
  return thread.sampled != 0 ? thread.sampled + options_.limit_msec : thread.since + period();
}

long Watch::look(const Watch_Options& options, starter_loops_t loops)
{
  options_ = options;
  loops_ = loops;
  now_ = now_msec();
  const unsigned count = loops(tids_, turns_, MAX_THREADS);

  // Threads that have left the loop make room for those that have entered it.
  for (unsigned i = 0; i < thread_count_;) {
    if (std::find(tids_, tids_ + count, threads_[i].tid) != tids_ + count)
      ++i;
    else {
      end_stall(threads_[i]);
      threads_[i] = threads_[--thread_count_];
    }
  }

  long next = now_ + period();
  if (count == 0 || !find_reactor())
    return next;
  for (unsigned i = 0; i < count; ++i) {
    Thread& thread = find(tids_[i], i);
    look_at(thread, turns_[i]);
    if (thread.works && due(thread) > now_)
      next = std::min(next, due(thread));
  }
  return next;
}

void Watch::skip(long msec)
{
  for (unsigned i = 0; i < thread_count_; ++i)
    for (long* const time : {&threads_[i].since, &threads_[i].sampled, &threads_[i].stalled})
      *time += *time != 0 ? msec : 0;
}
