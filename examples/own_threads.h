#ifndef EXAMPLES_OWN_THREADS_H
#define EXAMPLES_OWN_THREADS_H

#include <ace/Thread_Manager.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <functional>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

/// The threads of a service, for work that would block a loop thread. Start them from init and stop them from fini:
/// stop returns when the last thread has ended, so nothing of the service runs after that.
///
/// The threads belong to a thread manager of their own. At shutdown the program waits for every thread of the
/// framework's common manager before it finalises a service, and would wait for ever for threads that only fini ends.
///
/// The threads take no signals but faults. A thread that took a hang-up would run fini, which waits for the end of this
/// very thread.
class Own_Threads
{
public:
  Own_Threads() = default;
  ~Own_Threads() { stop(); }

  Own_Threads(const Own_Threads&) = delete;
  Own_Threads& operator=(const Own_Threads&) = delete;

  /// Run `work` in `count` threads. stop() calls `wake`, unless it is empty, to end waits of theirs that are not in
  /// wait_for. Returns 0, or -1 with errno; no thread is left then.
  int start(unsigned count, std::function<void()> work, std::function<void()> wake = {});

  /// Wake the threads, and wait until all of them have ended. Does nothing when there are none.
  void stop();

  /// The threads call this to wait until `fd` can be read. Returns false when they are to end.
  bool wait_for(int fd) const;

private:
  static void* run(void* arg);

  ACE_Thread_Manager manager_;
  std::function<void()> work_;
  std::function<void()> wake_;
  int stop_fd_ = -1; // all threads can read it once they are to end
};

inline void* Own_Threads::run(void* arg)
{
  static_cast<Own_Threads*>(arg)->work_();
  return nullptr;
}

inline int Own_Threads::start(unsigned count, std::function<void()> work, std::function<void()> wake)
{
  stop_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (stop_fd_ == -1)
    return -1;
  work_ = std::move(work);
  wake_ = std::move(wake);

  sigset_t all_but_faults;
  sigset_t before;
  sigfillset(&all_but_faults);
  for (const int fault : {SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGABRT})
    sigdelset(&all_but_faults, fault);
  (void)pthread_sigmask(SIG_SETMASK, &all_but_faults, &before); // new threads inherit this mask
  const int group = manager_.spawn_n(count, run, this, THR_NEW_LWP | THR_JOINABLE);
  const int error = errno;
  (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);

  if (group != -1)
    return 0;
  stop(); // ends the threads that have been started
  errno = error;
  return -1;
}

inline void Own_Threads::stop()
{
  if (stop_fd_ == -1)
    return;

  const std::uint64_t one = 1;
  (void)!::write(stop_fd_, &one, sizeof one); // cannot fail: nobody has written to it before
  if (wake_)
    wake_();
  manager_.wait();

  ::close(stop_fd_);
  stop_fd_ = -1;
}

inline bool Own_Threads::wait_for(int fd) const
{
  pollfd fds[] = {{stop_fd_, POLLIN, 0}, {fd, POLLIN, 0}};

  while (::poll(fds, 2, -1) == -1)
    ; // a debugger, for instance, interrupts the wait
  return fds[0].revents == 0;
}

#endif // EXAMPLES_OWN_THREADS_H
