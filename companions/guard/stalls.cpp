#include "companions/guard/stalls.h"

#include "companions/guard/clock.h"
#include "companions/guard/symbols.h"
#include "scrt/log.h"

#include <atomic>
#include <cstddef>
#include <cstdio>

enum { MAX_RECORDS = 5, RECORDS_MSEC = 60000, TRACE_SIZE = 3500 }; // the framework cuts a record at 4 KiB

// They outlive a reload.
static std::atomic<unsigned long> stalls;
static std::atomic<unsigned> stalled_threads;
static long record_times[MAX_RECORDS]; // of the latest records; 0 for none

// Whole lines, the innermost function first.
static void describe_stack(const Sample& sample, char (&text)[TRACE_SIZE])
{
  enum { LINE_SIZE = 512 };
  std::size_t used = 0;
  for (std::size_t n = 0; sample.has_frame(n); ++n) {
    char line[LINE_SIZE];
    const std::size_t length = describe_address(sample.frame(n).ip, line, sizeof line);
    if (used + length + 2 > sizeof text)
      break;
    used += static_cast<std::size_t>(std::snprintf(text + used, sizeof text - used, "%s\n", line));
  }
  text[used] = '\0';
}

// Forgets the oldest of the records.
static bool may_record()
{
  const long now = now_msec();
  long* oldest = record_times;
  for (long& time : record_times)
    if (time < *oldest)
      oldest = &time;
  if (*oldest != 0 && now - *oldest < RECORDS_MSEC)
    return false;

  *oldest = now;
  return true;
}

bool report_stall(pid_t tid, const char* thread_name, long msec, const Sample* sample, bool counts)
{
  ++stalls;
  ++stalled_threads;
  if (!may_record())
    return false;

  char count[48] = "";
  if (counts)
    (void)std::snprintf(count, sizeof count, ", stall %lu of this process", stalls.load());
  if (!sample) {
    LOG_RECORD(LM_WARNING, "Thread %d [%C] has been in one callback for %d ms%C, and takes no sample of its stack\n",
               tid, thread_name, static_cast<int>(msec), count);
    return true;
  }

  char trace[TRACE_SIZE];
  describe_stack(*sample, trace);
  LOG_RECORD(LM_WARNING, "Thread %d [%C] has been in one callback for %d ms%C, the back trace:\n%C.\n", tid,
             thread_name, static_cast<int>(msec), count, trace);
  return true;
}

void report_return(pid_t tid, const char* thread_name, long msec, bool is_recorded)
{
  --stalled_threads;
  if (is_recorded)
    LOG_RECORD(LM_INFO, "Thread %d [%C] is back after %d ms in one callback\n", tid, thread_name,
               static_cast<int>(msec));
}

unsigned long count_stalls()
{
  return stalls;
}

unsigned count_stalled_threads()
{
  return stalled_threads;
}
