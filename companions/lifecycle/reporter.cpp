#include "companions/lifecycle/reporter.h"

#include "companions/common/own_thread.h"
#include "companions/join_until.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>

static constexpr std::chrono::milliseconds LOOK_INTERVAL(250);
static constexpr std::chrono::seconds END_PATIENCE(1); // the thread has no reason to take as long as this

using std::chrono::microseconds;
using std::chrono::seconds;

Reporter::Reporter()
{
  (void)::sem_init(&wake_up_, 0, 0); // cannot fail with these arguments
}

// ---- The thread's life

void* Reporter::run(void* arg)
{
  static_cast<Reporter*>(arg)->work();
  return nullptr;
}

int Reporter::start(const char* address)
{
  if (socket_.open(address) != 0)
    return -1;

  is_ended_ = false;
  int error = pthread_getcpuclockid(pthread_self(), &main_clock_);
  if (error == 0)
    error = make_own_thread(thread_, run, this);
  if (error != 0) {
    errno = error;
    return -1;
  }
  has_thread_ = true;
  (void)pthread_setname_np(thread_, "lifecycle"); // the name is for those who look at the process
  return 0;
}

void Reporter::stop()
{
  if (!has_thread_)
    return;

  has_thread_ = false;
  is_ended_ = true;
  (void)::sem_post(&wake_up_); // cannot fail with so few posts

  timespec until{};
  (void)::clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += END_PATIENCE.count();
  if (join_until(thread_, until) != 0)
    (void)pthread_detach(thread_); // its code and this object stay as long as the process
}

void Reporter::work()
{
  for (bool is_last = false; !is_last;) {
    wait();
    is_last = is_ended_;
    tell_again();
    send_status();
    extend_time();
  }
}

// Until somebody has news, or, while something is under way or untold, until it is time to look again. A new operation
// is news even to a thread that has given up on the one before.
void Reporter::wait()
{
  const bool is_idle = operation_ == Operation::NONE || !has_time_left_;
  if (is_idle && !untold_ && !is_status_untold_) {
    while (::sem_wait(&wake_up_) != 0)
      ; // a debugger, for instance, interrupts it
    return;
  }

  timespec until{};
  (void)::clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += std::chrono::nanoseconds(LOOK_INTERVAL).count();
  if (until.tv_nsec >= 1000000000) {
    until.tv_nsec -= 1000000000;
    ++until.tv_sec;
  }
  while (::sem_clockwait(&wake_up_, CLOCK_MONOTONIC, &until) != 0 && errno == EINTR)
    ;
}

// ---- Where the process is

void Reporter::set_limits(const Time_Limits& limits)
{
  limit_sec_ = limits.limit.count();
  pause_sec_ = limits.pause.count();
}

void Reporter::set_operation(Operation operation)
{
  if (operation == Operation::RELOAD)
    is_start_over_ = true;
  Operation present = operation_;
  while (present != Operation::STOP && !operation_.compare_exchange_weak(present, operation))
    ;
  ++operations_;
  (void)::sem_post(&wake_up_); // safe in signal handlers
}

void Reporter::end_start()
{
  is_start_over_ = true;
  Operation start = Operation::START;
  (void)operation_.compare_exchange_strong(start, Operation::NONE);
  (void)::sem_post(&wake_up_);
}

static bool is_worth_another_try(int error)
{
  return error == EAGAIN || error == ENOBUFS; // systemd has not fetched what it got before
}

void Reporter::tell(const char* text)
{
  untold_ = nullptr;
  if (socket_.send(text) || !is_worth_another_try(errno))
    return;
  untold_ = text;
  (void)::sem_post(&wake_up_);
}

void Reporter::tell_again()
{
  const char* text = untold_.exchange(nullptr);
  if (!text || socket_.send(text) || !is_worth_another_try(errno))
    return;

  const char* nothing = nullptr;
  (void)untold_.compare_exchange_strong(nothing, text); // a later text takes its place
}

void Reporter::tell_reloading()
{
  static const char BEGIN[] = "RELOADING=1\nMONOTONIC_USEC=";
  timespec now{};
  (void)::clock_gettime(CLOCK_MONOTONIC, &now); // the clock that systemd compares with

  char text[sizeof BEGIN + 24];
  std::memcpy(text, BEGIN, sizeof BEGIN);
  char* end = text + sizeof BEGIN - 1;
  end = std::to_chars(end, text + sizeof text - 1, now.tv_sec * 1000000LL + now.tv_nsec / 1000).ptr; // takes no memory
  *end++ = '\n';

  untold_ = nullptr;
  (void)socket_.send({text, static_cast<std::size_t>(end - text)});
}

// ---- The status line

static const char* name_of(Operation operation)
{
  switch (operation) {
  case Operation::START:
    return "starting";
  case Operation::RELOAD:
    return "reloading";
  case Operation::STOP:
    return "stopping";
  default:
    return "running";
  }
}

std::string Reporter::make_status() const
{
  char failure[Last_Failure::MAX_SIZE];
  const std::size_t failure_size = last_failure_.copy(failure);

  std::string text = name_of(operation_);
  if (const char* const reactor = facts_.reactor)
    text += "; reactor: " + std::string(reactor) + "; threads: " + std::to_string(facts_.threads) +
            "; services: " + std::to_string(facts_.services);
  text += "; reloads: " + std::to_string(facts_.reloads) + "; last failure: ";
  text += failure_size != 0 ? std::string(failure, failure_size) : "none";
  return text;
}

void Reporter::send_status()
{
  std::string status = make_status();
  if (status == sent_status_) {
    is_status_untold_ = false;
    return;
  }

  is_status_untold_ = !socket_.send("STATUS=" + status + '\n') && is_worth_another_try(errno);
  if (!is_status_untold_)
    sent_status_ = std::move(status);
}

// ---- More time

long long Reporter::main_thread_nsec() const
{
  timespec used{};
  (void)::clock_gettime(main_clock_, &used); // the main thread is there as long as the process
  return used.tv_sec * 1000000000LL + used.tv_nsec;
}

void Reporter::extend_time()
{
  const Operation operation = operation_;
  if (operation == Operation::NONE)
    return;

  const long long used_nsec = main_thread_nsec();
  const bool has_progress = used_nsec != known_nsec_;
  known_nsec_ = used_nsec;
  if (const unsigned operations = operations_; operations != known_operations_) {
    known_operations_ = operations;
    begin_ = Clock::now();
    has_time_left_ = true;
    return; // from here on, progress counts
  }

  const microseconds left = seconds(limit_sec_) - std::chrono::duration_cast<microseconds>(Clock::now() - begin_);
  has_time_left_ = left.count() > 0;
  if (!has_progress || !has_time_left_)
    return;

  // Systemd has only made a note of a stop during the start, and may have dropped it when the program was ready.
  const std::string text = operation == Operation::STOP && !is_start_over_ ? "STOPPING=1\n" : "";
  const microseconds more = std::min(left, microseconds(seconds(pause_sec_)));
  (void)socket_.send(text + "EXTEND_TIMEOUT_USEC=" + std::to_string(more.count()) + '\n');
}
