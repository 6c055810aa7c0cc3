#include "companions/control/threads.h"

#include "companions/guard/judge.h"
#include "companions/guard/reactor_memory.h"
#include "companions/guard/sampler.h"
#include "companions/guard/symbols.h"
#include "companions/guard/thread_call.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <cxxabi.h>
#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

using nlohmann::json;

enum { MAX_LOOPS = 1024 }; // those that the program counts for

static int sample_signal; // 0 for none

bool prepare_threads()
{
  prepare_to_judge();
  sample_signal = open_sampler();
  return sample_signal != 0;
}

// ---- The files of a thread

static std::string read_thread_file(pid_t tid, const char* file)
{
  const std::string path = "/proc/self/task/" + std::to_string(tid) + '/' + file;
  const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(path.c_str(), "re"), std::fclose);
  char text[4096];
  return std::string(text, stream ? std::fread(text, 1, sizeof text, stream.get()) : 0);
}

static bool blocks_sample_signal(pid_t tid)
{
  static const std::string LABEL = "\nSigBlk:\t";
  const std::string status = read_thread_file(tid, "status");
  const std::size_t at = status.find(LABEL);
  if (at == status.npos)
    return true; // the thread has ended

  unsigned long long mask = 0;
  const char* const begin = status.data() + at + LABEL.size();
  (void)std::from_chars(begin, status.data() + status.size(), mask, 16);
  return (mask >> (sample_signal - 1) & 1) != 0;
}

// The kernel goes on with this call after a signal.
static bool waits_for_lock(pid_t tid)
{
  const std::string call = read_thread_file(tid, "syscall");
  return call.compare(0, call.find(' '), std::to_string(SYS_futex)) == 0;
}

// ---- The state of a loop thread

static const char* state_of(pid_t tid, const Reactor_Memory* reactor)
{
  if (!reactor)
    return "unknown";
  if (read_thread_file(tid, "syscall").empty())
    return "unknown"; // the process has switched its user, and lost the right to ask

  if (read_thread_call(tid, *reactor).doing == Doing::WAITS_FOR_EVENTS)
    return "waiting";
  if (sample_signal == 0 || !waits_for_lock(tid) || blocks_sample_signal(tid))
    return "working";

  const Sample* const sample = take_sample(tid); // it may wait for its turn
  return sample && judge(*sample).is_waiting ? "waiting" : "working";
}

static std::string name_of(pid_t tid)
{
  char name[NAME_SIZE];
  read_thread_name(tid, name);
  return name;
}

json describe_loop_threads(starter_loops_t loops)
{
  std::vector<int> tids(MAX_LOOPS);
  std::vector<unsigned long> turns(MAX_LOOPS);
  const unsigned count = loops(tids.data(), turns.data(), MAX_LOOPS);

  Reactor_Memory reactor;
  bool one_callback;
  const bool is_known = count != 0 && find_reactor_memory(reactor, one_callback);
  if (is_known)
    set_reactor_memory(reactor);

  json threads = json::array();
  for (unsigned i = 0; i < count; ++i)
    threads.push_back({{"tid", tids[i]},
                       {"name", name_of(tids[i])},
                       {"state", state_of(tids[i], is_known ? &reactor : nullptr)},
                       {"turns", turns[i]}});
  return threads;
}

// ---- Back traces

static std::vector<pid_t> all_threads()
{
  std::vector<pid_t> tids;
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir("/proc/self/task"), ::closedir);
  while (const dirent* const entry = dir ? ::readdir(dir.get()) : nullptr)
    if (const pid_t tid = std::atoi(entry->d_name); tid > 0)
      tids.push_back(tid);
  return tids;
}

static std::string hex(std::uintptr_t value)
{
  char text[2 + 2 * sizeof value + 1];
  (void)std::snprintf(text, sizeof text, "%#lx", static_cast<unsigned long>(value));
  return text;
}

static std::string demangled(const char* name)
{
  int status;
  const std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
  return text ? text.get() : name;
}

// A frame goes on behind its call, which may be in the function before.
static json describe_frame(std::uintptr_t ip, bool is_innermost)
{
  const Code_Place place = find_place(is_innermost ? ip : ip - 1);
  const std::uintptr_t back = is_innermost ? 0 : 1;

  json frame = {{"address", hex(ip)}, {"module", ""}, {"offset", ""}, {"function", ""}};
  if (place.module) {
    frame["module"] = place.module;
    frame["offset"] = hex(place.offset + back);
  }
  if (place.function)
    frame["function"] = demangled(place.function) + '+' + hex(place.function_offset + back);
  return frame;
}

static json trace_thread(pid_t tid)
{
  json frames = json::array();
  if (tid == ::gettid() || sample_signal == 0 || blocks_sample_signal(tid))
    return frames;

  if (const Sample* const sample = take_sample(tid))
    for (std::size_t n = 0; n < sample->frame_count; ++n)
      if (sample->has_frame(n)) // of a deep stack the middle is forgotten
        frames.push_back(describe_frame(sample->frame(n).ip, n == 0));
  return frames;
}

json trace_threads()
{
  Reactor_Memory reactor;
  bool one_callback;
  if (find_reactor_memory(reactor, one_callback))
    set_reactor_memory(reactor);

  json threads = json::array();
  for (const pid_t tid : all_threads())
    threads.push_back({{"tid", tid}, {"name", name_of(tid)}, {"frames", trace_thread(tid)}});
  return threads;
}
