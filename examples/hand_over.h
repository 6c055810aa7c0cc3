#ifndef EXAMPLES_HAND_OVER_H
#define EXAMPLES_HAND_OVER_H

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <cstddef>
#include <deque>
#include <utility>

/// A queue from the callbacks of a service to its own threads. Nothing that it has taken is lost when the service ends:
/// fini closes the queue, from then on it takes nothing, and the threads come to their end when it is empty.
///
/// The queue has to outlive the callbacks, which may come after fini. Let the event handler have it, not the service.
template <typename Job>
class Hand_Over
{
public:
  /// Take up to `capacity` jobs that wait for a thread.
  explicit Hand_Over(std::size_t capacity) : capacity_(capacity) {}

  Hand_Over(const Hand_Over&) = delete;
  Hand_Over& operator=(const Hand_Over&) = delete;

  /// Put `job` into the queue and then call `acknowledge`, which must not block. Returns false, and does neither, when
  /// the queue is full or has been closed: the caller refuses the job.
  template <typename Acknowledge>
  bool put(Job job, Acknowledge acknowledge);

  /// Wait for a job and move it to `job`. Returns false when the queue has been closed and is empty.
  bool take(Job& job);

  /// Take no more jobs. For fini, before it waits for the threads.
  void close();

private:
  const std::size_t capacity_;
  ACE_Thread_Mutex lock_; // guards the members below; held for moments only, as fini takes it in signal context
  ACE_Condition_Thread_Mutex changed_{lock_};
  std::deque<Job> jobs_;
  bool closed_ = false;
};

template <typename Job>
template <typename Acknowledge>
bool Hand_Over<Job>::put(Job job, Acknowledge acknowledge)
{
  const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  // A look at closed_ outside the lock would leave a gap in which the last thread goes.
  if (closed_ || jobs_.size() == capacity_)
    return false;

  jobs_.push_back(std::move(job));
  acknowledge();
  (void)changed_.signal();
  return true;
}

template <typename Job>
bool Hand_Over<Job>::take(Job& job)
{
  const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  while (jobs_.empty() && !closed_)
    (void)changed_.wait();
  if (jobs_.empty())
    return false;

  job = std::move(jobs_.front());
  jobs_.pop_front();
  return true;
}

template <typename Job>
void Hand_Over<Job>::close()
{
  const ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  closed_ = true;
  (void)changed_.broadcast();
}

#endif // EXAMPLES_HAND_OVER_H
