// A service whose callbacks hang on command. Its first argument is a FIFO. A letter in it has the callback that reads
// it hang: 's' asleep, 'c' computing, 'm' for a mutex, 'r' in a read, 'a' in the allocator, which the preloaded library
// slow_malloc makes slow. The callback hangs until the letter 'g' comes from the second FIFO. The letter 'n' there has
// the service write the numbers that the guard tells other services.

#include "companions/guard/guard.h"

#include <ace/Event_Handler.h>
#include <ace/Log_Msg.h>
#include <ace/Reactor.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <atomic>
#include <cstdlib>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

// The functions are visible, so that back traces name them.
extern "C"
{
[[gnu::visibility("default"), gnu::noinline]] void hang_asleep();
[[gnu::visibility("default"), gnu::noinline]] void hang_computing();
[[gnu::visibility("default"), gnu::noinline]] void hang_for_a_mutex();
[[gnu::visibility("default"), gnu::noinline]] void hang_in_a_read();
[[gnu::visibility("default"), gnu::noinline]] void hang_in_the_allocator();
}

namespace
{
constexpr std::size_t SLOW_SIZE = 54321; // as in slow_malloc

std::atomic<bool> is_released;
std::atomic<bool> is_ready; // the thread that takes the release holds the mutex
std::mutex held;
int read_end = -1;
int write_end = -1;
int release_fd = -1;
std::atomic<unsigned> sink;

void rest()
{
  const timespec moment = {0, 2000000};
  (void)nanosleep(&moment, nullptr);
}
} // namespace

void hang_asleep()
{
  const timespec moment = {0, 20000000};
  while (!is_released)
    (void)nanosleep(&moment, nullptr); // not in another function, as back traces are to name this one
}

void hang_computing()
{
  unsigned n = 1;
  while (!is_released)
    sink = n = n * 1664525 + 1013904223;
}

void hang_for_a_mutex()
{
  const std::lock_guard<std::mutex> lock(held);
  ++sink;
}

void hang_in_a_read()
{
  char byte;
  while (::read(read_end, &byte, 1) != 1)
    ;
}

void hang_in_the_allocator()
{
  void* volatile memory = std::malloc(SLOW_SIZE);
  std::free(memory);
}

namespace
{
void set_slow_malloc_over(bool is_over)
{
  if (auto* const slow = static_cast<std::atomic<bool>*>(::dlsym(RTLD_DEFAULT, "slow_malloc_is_over")))
    *slow = is_over;
}

template <typename T>
T* find_in_guard(void* guard, const char* name)
{
  return guard ? reinterpret_cast<T*>(::dlsym(guard, name)) : nullptr;
}

void write_numbers()
{
  void* const guard = ::dlopen("libstarter_guard.so", RTLD_NOLOAD | RTLD_LAZY);
  auto* const stalls = find_in_guard<decltype(starter_guard_stalls)>(guard, "starter_guard_stalls");
  auto* const threads = find_in_guard<decltype(starter_guard_stalled_threads)>(guard, "starter_guard_stalled_threads");

  if (stalls && threads)
    ACE_DEBUG((LM_INFO, "The guard tells %u stalls, and %u threads that hang.\n", static_cast<unsigned>(stalls()),
               threads()));
  else
    ACE_DEBUG((LM_INFO, "There is no guard that tells its numbers.\n"));
}

// The thread holds the mutex until the release comes, and again from the end of the callback on.
void* release(void*)
{
  for (;;) {
    held.lock();
    is_ready = true;
    char byte = 0;
    while (::read(release_fd, &byte, 1) != 1 || byte == 'n')
      if (byte == 'n')
        write_numbers();
    is_ready = false;
    if (byte == 'q') {
      held.unlock();
      return nullptr;
    }

    is_released = true;
    set_slow_malloc_over(true);
    (void)!::write(write_end, "x", 1);
    held.unlock();
    while (is_released)
      rest();
  }
}

void hang(char how)
{
  ACE_DEBUG((LM_INFO, "A callback hangs.\n"));
  if (how == 's')
    hang_asleep();
  else if (how == 'c')
    hang_computing();
  else if (how == 'm')
    hang_for_a_mutex();
  else if (how == 'r')
    hang_in_a_read();
  else if (how == 'a')
    hang_in_the_allocator();

  char byte;
  while (how != 'r' && ::read(read_end, &byte, 1) != 1)
    ;
  set_slow_malloc_over(false);
  is_released = false;
  while (!is_ready)
    rest();
  ACE_DEBUG((LM_INFO, "A callback goes on.\n"));
}

class Fifo : public ACE_Event_Handler
{
public:
  explicit Fifo(const char* path) : fd_(::open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC))
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
  }

  ACE_HANDLE get_handle() const override { return fd_; }

  int handle_input(ACE_HANDLE) override
  {
    char how;
    if (::read(fd_, &how, 1) == 1)
      hang(how);
    return 0;
  }

protected:
  ~Fifo() override { ::close(fd_); }

private:
  const int fd_;
};

class Hanger : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    int fds[2];
    if (argc < 2 || ::pipe2(fds, O_CLOEXEC) != 0)
      return -1;
    read_end = fds[0];
    write_end = fds[1];
    release_fd = ::open(argv[1], O_RDWR | O_CLOEXEC);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&releaser_, nullptr, release, nullptr);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0)
      return -1;
    while (!is_ready)
      rest();
    fifo_ = new Fifo(argv[0]);
    return ACE_Reactor::instance()->register_handler(fifo_.handler(), ACE_Event_Handler::READ_MASK);
  }

  int fini() override
  {
    (void)ACE_Reactor::instance()->remove_handler(fifo_.handler(),
                                                  ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
    fifo_ = nullptr;
    (void)!::write(release_fd, "q", 1);
    (void)pthread_join(releaser_, nullptr);
    ::close(read_end);
    ::close(write_end);
    ::close(release_fd);
    return 0;
  }

private:
  ACE_Event_Handler_var fifo_;
  pthread_t releaser_;
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Hanger)
