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

/// Threads of a service's own, for work that would block a loop thread. Start and stop them from init and fini: stop
/// returns when the last one has ended, so nothing of the service runs after it.
///
/// They belong to a thread manager of their own. At shutdown the program waits for every thread of the framework's
/// common one before it finalises a service, and would wait for ever for threads that only fini ends.
///
/// They take no signals but faults. A hang-up that one of them took would run fini, which waits for its end.
class Own_Threads
{
public:
  Own_Threads() = default;
  ~Own_Threads() { stop(); }

  Own_Threads(const Own_Threads&) = delete;
  Own_Threads& operator=(const Own_Threads&) = delete;

  /// Run `work` in `count` threads. Returns 0, or -1 with errno and no thread left.
  int start(unsigned count, std::function<void()> work);

  /// Wake the threads that wait and wait for the end of all. Nothing happens when there are none.
  void stop();

  /// From the threads: wait until `fd` can be read. False when they are to end.
  bool wait_for(int fd) const;

private:
  static void* run(void* arg);

  ACE_Thread_Manager manager_;
  std::function<void()> work_;
  int stop_fd_ = -1; // can be read, by all of them, once they are to end
};

inline void* Own_Threads::run(void* arg)
{
  static_cast<Own_Threads*>(arg)->work_();
  return nullptr;
}

inline int Own_Threads::start(unsigned count, std::function<void()> work)
{
  stop_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (stop_fd_ == -1)
    return -1;
  work_ = std::move(work);

  sigset_t all_but_faults;
  sigset_t before;
  sigfillset(&all_but_faults);
  for (const int fault : {SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGABRT})
    sigdelset(&all_but_faults, fault);
  (void)pthread_sigmask(SIG_SETMASK, &all_but_faults, &before); // what a thread is born with
  const int group = manager_.spawn_n(count, run, this, THR_NEW_LWP | THR_JOINABLE);
  const int error = errno;
  (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);

  if (group != -1)
    return 0;
  stop(); // those that have been started
  errno = error;
  return -1;
}

inline void Own_Threads::stop()
{
  if (stop_fd_ == -1)
    return;

  const std::uint64_t one = 1;
  (void)!::write(stop_fd_, &one, sizeof one); // cannot fail: nobody has written before
  manager_.wait();

  ::close(stop_fd_);
  stop_fd_ = -1;
}

inline bool Own_Threads::wait_for(int fd) const
{
  pollfd fds[] = {{stop_fd_, POLLIN, 0}, {fd, POLLIN, 0}};

  while (::poll(fds, 2, -1) == -1)
    ; // interrupted: by a debugger, for instance
  return fds[0].revents == 0;
}

#endif // EXAMPLES_OWN_THREADS_H
