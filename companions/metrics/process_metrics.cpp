#include "companions/metrics/process_metrics.h"

#include "companions/metrics/family.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

using prometheus::MetricType;
using Families = std::vector<prometheus::MetricFamily>;

namespace
{
/// The fields of /proc/self/stat that are served.
struct Process_Stat
{
  unsigned long user_ticks;
  unsigned long system_ticks;
  unsigned long long start_ticks; ///< after the start of the machine
  unsigned long virtual_bytes;
  long resident_pages;
};
} // namespace

static bool read_file(const char* path, char* text, std::size_t size)
{
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "re"), std::fclose);
  const std::size_t n = file ? std::fread(text, 1, size - 1, file.get()) : 0;
  text[n] = '\0';
  return n != 0;
}

static bool read_stat(Process_Stat& stat)
{
  char text[1024];
  if (!read_file("/proc/self/stat", text, sizeof text))
    return false;

  // The name of the program comes before the fields, in parentheses, and may have any character in it.
  const char* const fields = std::strrchr(text, ')');
  return fields && std::sscanf(fields + 1,
                               " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu %*d %*d %*d %*d %*d %*d %llu %lu "
                               "%ld",
                               &stat.user_ticks, &stat.system_ticks, &stat.start_ticks, &stat.virtual_bytes,
                               &stat.resident_pages) == 5;
}

// The time since the start of the process.
static double up_seconds(const Process_Stat& stat)
{
  timespec now{};
  (void)::clock_gettime(CLOCK_BOOTTIME, &now); // the clock of the start
  const double ticks = static_cast<double>(stat.start_ticks) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9 - ticks;
}

static void add_stat(Families& families)
{
  Process_Stat stat;
  if (!read_stat(stat))
    return;

  const double ticks = static_cast<double>(stat.user_ticks + stat.system_ticks);
  const double up = up_seconds(stat);
  const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  add_value(add_family(families, "process_cpu_seconds_total", "Processor time of the process.", MetricType::Counter),
            ticks / static_cast<double>(::sysconf(_SC_CLK_TCK)));
  add_value(add_family(families, "process_start_time_seconds", "Start of the process, in seconds of the Unix epoch.",
                       MetricType::Gauge),
            now - up);
  add_value(add_family(families, "process_virtual_memory_bytes", "Size of the virtual memory.", MetricType::Gauge),
            static_cast<double>(stat.virtual_bytes));
  add_value(add_family(families, "process_resident_memory_bytes", "Size of the resident memory.", MetricType::Gauge),
            static_cast<double>(stat.resident_pages) * static_cast<double>(::sysconf(_SC_PAGESIZE)));
  add_value(add_family(families, "starter_up_seconds", "Time since the start of the process.", MetricType::Gauge), up);
}

static void add_descriptors(Families& families)
{
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0)
    add_value(add_family(families, "process_max_fds", "Limit of open descriptors.", MetricType::Gauge),
              static_cast<double>(limit.rlim_cur));

  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir("/proc/self/fd"), ::closedir);
  if (!dir)
    return;
  int count = -1; // the descriptor of the directory itself does not count
  while (const dirent* const entry = ::readdir(dir.get()))
    if (entry->d_name[0] != '.')
      ++count;
  add_value(add_family(families, "process_open_fds", "Open descriptors.", MetricType::Gauge), count);
}

void add_process_metrics(Families& families)
{
  add_stat(families);
  add_descriptors(families);
}
