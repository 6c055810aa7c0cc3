// A service that writes records, as its arguments say:
//
//   texts N RATE  N records of all texts and priorities while it is loaded, RATE a second or as fast as it can
//   failure       a record of status 0 while errno is set, and the record of a failed system call
//   large N       a record that is made without the framework's buffer, and has N bytes
//   thread RATE   numbered records in a thread of its own, RATE a second, until it ends
//   flood N RATE  N numbered records in a thread of its own, RATE a second; then one that tells, on standard output
//   too,
//                 how often the thread has waited in them, how long the longest took, and the most time on a processor
//                 that one took

#include "tests/support/scribe_texts.h"

#include "scrt/log.h"

#include <ace/Log_Record.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Service_Object.h>
#include <ace/svc_export.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

void wait_for_turn(Clock::time_point begin, unsigned i, int rate)
{
  if (rate > 0)
    std::this_thread::sleep_until(begin + std::chrono::nanoseconds(1000000000L / rate * i));
}

void write_texts(unsigned count, int rate)
{
  const Clock::time_point begin = Clock::now();
  for (unsigned i = 0; i < count; ++i) {
    wait_for_turn(begin, i, rate);
    LOG_RECORD(SCRIBE_PRIORITIES[i % SCRIBE_PRIORITY_COUNT].priority, "%C\n", scribe_text(i).c_str());
  }
}

void write_large(std::size_t size)
{
  ACE_Log_Record record(LM_NOTICE, ACE_OS::gettimeofday(), ::getpid());
  record.msg_data((std::string(size, 'x') + '\n').c_str());
  (void)ACE_LOG_MSG->log(record);
}

// Numbers go on over a reload, as the library stays loaded.
std::atomic<unsigned> next_number;

// How often the thread has given up its processor to wait for something.
long count_waits()
{
  rusage usage{};
  (void)::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

// The time that the thread has had a processor.
long cpu_nsec()
{
  timespec used{};
  (void)::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return used.tv_sec * 1000000000 + used.tv_nsec;
}

void write_number()
{
  LOG_RECORD(LM_INFO, "number %u.\n", next_number++);
}

class Scribe : public ACE_Service_Object
{
public:
  int init(int argc, char** argv) override
  {
    const std::string what = argc > 0 ? argv[0] : "";
    const unsigned count = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 0;
    const int rate = argc > 2 ? std::atoi(argv[2]) : 0;
    if (what == "texts")
      write_texts(count, rate);
    else if (what == "failure") {
      errno = ENOENT;
      LOG_RECORD(LM_ERROR, "No failure, errno=%d\n", errno);
      LOG_FAILED(LM_ERROR, "Failed on purpose, errno=%d, %m\n", errno);
    } else if (what == "large")
      write_large(count);
    else if (what == "thread")
      start(&Scribe::write_numbers, 0, static_cast<int>(count));
    else if (what == "flood")
      start(&Scribe::flood, count, rate);
    return 0;
  }

  int fini() override
  {
    is_ended_ = true;
    if (thread_.joinable())
      thread_.join();
    return 0;
  }

private:
  // No signal handler interrupts the thread.
  void start(void (Scribe::*run)(unsigned, int), unsigned count, int rate)
  {
    sigset_t all, former;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &former);
    thread_ = std::thread(run, this, count, rate);
    pthread_setname_np(thread_.native_handle(), "scribe");
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
  }

  void write_numbers(unsigned, int rate)
  {
    while (!is_ended_) {
      write_number();
      std::this_thread::sleep_for(std::chrono::microseconds(1000000 / rate));
    }
  }

  void flood(unsigned count, int rate)
  {
    Clock::duration longest{};
    long longest_cpu_nsec = 0;
    long waits = 0;
    const Clock::time_point begin = Clock::now();
    for (unsigned i = 0; i < count && !is_ended_; ++i) {
      wait_for_turn(begin, i, rate);
      const long waits_before = count_waits();
      const Clock::time_point before = Clock::now();
      const long cpu_before = cpu_nsec();
      write_number();
      longest_cpu_nsec = std::max(longest_cpu_nsec, cpu_nsec() - cpu_before);
      longest = std::max(longest, Clock::now() - before);
      waits += count_waits() - waits_before;
    }

    const auto usec = [](Clock::duration d) {
      return std::chrono::duration_cast<std::chrono::microseconds>(d).count();
    };
    char summary[128];
    const int len = std::snprintf(summary, sizeof summary,
                                  "flooded, %ld waits, at most %ld us, %ld us of a processor, in all %ld ms.\n", waits,
                                  static_cast<long>(usec(longest)), longest_cpu_nsec / 1000,
                                  static_cast<long>(usec(Clock::now() - begin) / 1000));
    LOG_RECORD(LM_INFO, "%C", summary);
    (void)!::write(STDOUT_FILENO, summary, static_cast<std::size_t>(len)); // wherever records go
  }

  std::thread thread_;
  std::atomic<bool> is_ended_{false};
};
} // namespace

ACE_FACTORY_DEFINE(ACE_Local_Service, Scribe)
