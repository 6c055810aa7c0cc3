#include "companions/metrics/host_metrics.h"

#include "companions/common/loop_watch.h"
#include "companions/common/program_note.h"
#include "companions/common/service_list.h"
#include "companions/metrics/family.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <link.h>

using prometheus::MetricType;
using Families = std::vector<prometheus::MetricFamily>;
using guard_stalls_t = unsigned long (*)();

enum { MAX_LOOPS = 1024 }; // the program counts no more

// The main thread writes these before the server is there.
static const char* component = "";
static const char* reactor = "";
static Program_Version program = {"", ""};
static starter_loops_t starter_loops;

static std::atomic<unsigned> loop_threads{0};
static std::atomic<guard_stalls_t> guard_stalls{nullptr};
static std::atomic<bool> is_guard_expected{true};

void prepare_host_metrics()
{
  if (*reactor)
    return;
  if (const char* const name = std::getenv("COMPONENT"))
    component = ::strdup(name); // once; the environment may change
  component = component ? component : "";
  program = find_program_version();
  starter_loops = find_starter_loops();
  reactor = reactor_kind();
}

// ---- In the event loop

// The threads of a pool come one after another, and leave for moments: their number is the most that were seen at once.
static void count_threads()
{
  static std::array<int, MAX_LOOPS> tids;
  static std::array<unsigned long, MAX_LOOPS> turns;
  if (!starter_loops)
    return;
  const unsigned count = starter_loops(tids.data(), turns.data(), MAX_LOOPS);
  loop_threads = std::max<unsigned>(loop_threads, count);
}

// The loader calls this for each library.
static int note_path_of_guard(dl_phdr_info* info, std::size_t, void* path)
{
  static const char NAME[] = "/libstarter_guard.so";
  const std::size_t length = std::strlen(info->dlpi_name);
  if (length < sizeof NAME - 1 || std::strcmp(info->dlpi_name + length - (sizeof NAME - 1), NAME) != 0)
    return 0;
  *static_cast<std::string*>(path) = info->dlpi_name;
  return 1;
}

// A library of a service has no name that the loader could find it by without a path.
static void look_for_guard()
{
  std::string path;
  void* const library =
      ::dl_iterate_phdr(note_path_of_guard, &path) ? ::dlopen(path.c_str(), RTLD_NOLOAD | RTLD_LAZY) : nullptr;
  if (library) // stays open: the number outlives the guard
    guard_stalls = reinterpret_cast<guard_stalls_t>(::dlsym(library, "starter_guard_stalls"));
}

void expect_guard()
{
  is_guard_expected = true;
}

void look_from_loop()
{
  count_threads();
  if (!guard_stalls && is_guard_expected.exchange(false))
    look_for_guard();
}

// ---- In the server

static void add_info(Families& families)
{
  add_value(add_family(families, "starter_info", "The program and the component that it runs.", MetricType::Gauge), 1,
            {{"component", component},
             {"version", program.version},
             {"revision", program.revision},
             {"reactor", reactor},
             {"threads", std::to_string(loop_threads)}});
}

static void add_services(Families& families)
{
  static Service_List services;
  (void)services.update(); // or else it has the last that is known

  const auto& entries = services.entries();
  const auto active =
      std::count_if(entries.begin(), entries.end(), [](const Service_Entry& entry) { return entry.is_active; });
  prometheus::MetricFamily& states =
      add_family(families, "starter_services", "Services that are loaded, by their state.", MetricType::Gauge);
  add_value(states, static_cast<double>(active), {{"state", "active"}});
  add_value(states, static_cast<double>(entries.size()) - static_cast<double>(active), {{"state", "suspended"}});

  if (entries.empty())
    return;
  prometheus::MetricFamily& each = add_family(
      families, "starter_service_active", "Whether the service is active: 0 if it is suspended.", MetricType::Gauge);
  for (const Service_Entry& entry : entries)
    add_value(each, entry.is_active ? 1 : 0, {{"name", entry.name}, {"library", entry.library}});
}

static void add_stalls(Families& families)
{
  if (const guard_stalls_t stalls = guard_stalls)
    add_value(add_family(families, "starter_stalls_total", "Callbacks that the companion guard has found to hang.",
                         MetricType::Counter),
              static_cast<double>(stalls()));
}

void add_host_metrics(Families& families)
{
  add_info(families);
  add_services(families);
  add_stalls(families);
}
