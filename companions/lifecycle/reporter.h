#ifndef COMPANIONS_LIFECYCLE_REPORTER_H
#define COMPANIONS_LIFECYCLE_REPORTER_H

#include "companions/common/last_failure.h"
#include "companions/lifecycle/notify_socket.h"

#include <atomic>
#include <chrono>
#include <string>

#include <pthread.h>
#include <semaphore.h>

/// The work of the process that systemd bounds by a time.
enum class Operation { NONE, START, RELOAD, STOP };

/// The times that the arguments set.
struct Time_Limits
{
  std::chrono::seconds limit; ///< an operation gets no more time after this
  std::chrono::seconds pause; ///< an operation may make no progress for this time
};

/// The facts that the status line tells besides the operation and the last failure. Any thread.
struct Status_Facts
{
  std::atomic<const char*> reactor{nullptr}; ///< the kind, null before the loop runs
  std::atomic<unsigned> threads{0};          ///< those that run the loop
  std::atomic<unsigned> services{0};
  std::atomic<unsigned> reloads{0};
};

/// Sends notifications, in part from a thread of its own. While an operation is under way, the thread looks every
/// quarter of a second whether the main thread has used its processor, and asks systemd for more time if it has. A
/// thread that waits for a lock or for an event uses none. At other times the thread sleeps.
///
/// The thread takes no lock and no signal but faults, and waits for nobody, so that it can be ended at any moment.
class Reporter
{
public:
  Reporter();

  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  /// Send notifications to `address`, see Notify_Socket::open(), and start the thread, for the calling thread's
  /// operations. Returns 0, or -1 with errno. Main thread.
  int start(const char* address);

  /// End the thread, which sends the status line before, if it has changed. Waits for at most a second. Main thread.
  void stop();

  void set_limits(const Time_Limits& limits);

  /// Tell the thread about the operation that is under way from here on, NONE when none is. After a STOP there is no
  /// other one, and a RELOAD comes after the start. Any thread, in signal handlers too.
  void set_operation(Operation operation);

  /// Tell the thread that the loop runs: a START is over then. Any thread.
  void end_start();

  /// Send `text`, a constant, which says that the process is ready or that it stops. If systemd does not take it at
  /// once, the thread sends it again until it does, or until there is a later text. Any thread, in signal handlers too.
  void tell(const char* text);

  /// Say that the process reloads. If systemd does not take that, it is not sent again: it could come after the end of
  /// the reload, and nothing would lead out of that. Any thread, in signal handlers too.
  void tell_reloading();

  Status_Facts& facts() { return facts_; }
  Last_Failure& last_failure() { return last_failure_; }

private:
  using Clock = std::chrono::steady_clock;

  static void* run(void* arg);
  void work();
  void wait();
  void tell_again();
  void send_status();
  std::string make_status() const;
  void extend_time();
  long long main_thread_nsec() const;

  Notify_Socket socket_;
  Status_Facts facts_;
  Last_Failure last_failure_;

  sem_t wake_up_;
  pthread_t thread_{};
  bool has_thread_ = false;
  std::atomic<bool> is_ended_{false};
  clockid_t main_clock_{}; ///< of the processor time of the main thread

  std::atomic<long long> limit_sec_{0};
  std::atomic<long long> pause_sec_{0};
  std::atomic<Operation> operation_{Operation::NONE};
  std::atomic<unsigned> operations_{0}; ///< the number of set_operation() calls
  std::atomic<bool> is_start_over_{false};
  std::atomic<const char*> untold_{nullptr};

  // Only the thread uses these.
  std::string sent_status_;
  bool is_status_untold_ = false;
  unsigned known_operations_ = 0;
  bool has_time_left_ = true; ///< the operation that is under way
  Clock::time_point begin_;
  long long known_nsec_ = 0;
};

#endif // COMPANIONS_LIFECYCLE_REPORTER_H
