#include "companions/control/process_view.h"

#include "companions/common/loop_watch.h"
#include "companions/control/threads.h"

#include <ace/Reactor.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

using nlohmann::json;

bool Process_View::enter(std::string& reason)
{
  loops_ = find_starter_loops();
  reloads_ = find_starter_reloads();
  call_ = find_starter_call();
  version_ = find_program_version();
  if (!loops_ || !reloads_ || !call_) {
    reason = "this program is older than the service";
    return false;
  }
  if (ping_.start() != 0) {
    reason = "the reactor takes no event handler";
    return false;
  }

  const char* const component = std::getenv("COMPONENT");
  component_ = component ? component : "";
  configuration_.remember_sources();
  last_failure_.install();
  capture_.install();
  (void)prepare_threads(); // without it, less is known of the threads
  return true;
}

void Process_View::leave()
{
  capture_.remove();
  last_failure_.remove();
  ping_.stop();
}

// ---- Services

bool Process_View::is_reloading() const
{
  unsigned begun;
  unsigned ended;
  reloads(begun, ended);
  return begun != ended;
}

bool Process_View::has_loop_run()
{
  int tid;
  unsigned long turns;
  has_loop_run_ = has_loop_run_ || loops_(&tid, &turns, 1) != 0;
  return has_loop_run_;
}

bool Process_View::refresh()
{
  unsigned begun;
  unsigned ended;
  reloads(begun, ended);
  if (begun != ended || is_changing_)
    return false;

  std::vector<Service> services;
  if (!list_services(services))
    return false;
  const bool is_new = has_loop_run() && (!knows_wanted_ || wanted_reloads_ != ended);
  Wanted_Services wanted = is_new ? configuration_.read() : Wanted_Services();

  // The things that were seen are true unless somebody has begun to change them meanwhile.
  const unsigned seen = begun;
  reloads(begun, ended);
  if (begun != seen || is_changing_)
    return false;
  services_ = std::move(services);
  if (is_new) {
    wanted_ = std::move(wanted);
    wanted_reloads_ = ended;
    knows_wanted_ = true;
  }
  return true;
}

const Service* Process_View::find(const std::string& name) const
{
  const auto found = std::find_if(services_.begin(), services_.end(),
                                  [&name](const Service& service) { return service.name == name; });
  return found != services_.end() ? &*found : nullptr;
}

std::vector<std::string> Process_View::missing() const
{
  std::vector<std::string> names;
  for (const auto& [name, service] : wanted_)
    if (!find(name))
      names.push_back(name);
  return names;
}

std::vector<std::string> Process_View::suspended() const
{
  std::vector<std::string> names;
  for (const auto& [name, service] : wanted_)
    if (const Service* const present = find(name); present && service.is_active && !present->is_active)
      names.push_back(name);
  return names;
}

// The framework has services of its own, which come from no library and no configuration file.
json Process_View::describe_services() const
{
  json list = json::array();
  for (const Service& service : services_) {
    const auto wanted = wanted_.find(service.name);
    std::string library = service.library;
    if (library.empty() && wanted != wanted_.end())
      library = wanted->second.library;
    if (!library.empty() || wanted != wanted_.end() || service.type != std::string("service"))
      list.push_back({{"name", service.name},
                      {"type", service.type},
                      {"state", service.is_active ? "active" : "suspended"},
                      {"library", library}});
  }
  for (const std::string& name : missing()) {
    const Wanted_Service& wanted = wanted_.at(name);
    list.push_back({{"name", name}, {"type", wanted.type}, {"state", "missing"}, {"library", wanted.library}});
  }
  return list;
}

std::string Process_View::directive_of(const std::string& name) const
{
  if (const auto wanted = wanted_.find(name); wanted != wanted_.end())
    return wanted->second.directive;
  const auto given = given_.find(name);
  return given != given_.end() ? given->second : "";
}

// ---- The process

const char* Process_View::state()
{
  enum { ENDED = 1 }; // the program marks a loop that is only left in another way
  if (ACE_Reactor::instance()->implementation()->deactivated() == ENDED)
    return "stopping";
  if (is_reloading())
    return "reloading";
  return has_loop_run() ? "running" : "starting";
}

// The field 22 of the file is the start, in ticks since the boot. The name of the process, field 2, may have blanks.
static double uptime_seconds()
{
  std::ifstream file("/proc/self/stat");
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::istringstream fields(text.substr(std::min(text.rfind(')') + 2, text.size())));
  std::string field;
  for (int n = 3; n <= 22; ++n)
    fields >> field;

  timespec now = {};
  (void)::clock_gettime(CLOCK_BOOTTIME, &now);
  const double start = std::strtod(field.c_str(), nullptr) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  return std::max(0.0, static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 - start);
}

json Process_View::describe() const
{
  char failure[Last_Failure::MAX_SIZE];
  const std::size_t failure_size = last_failure_.copy(failure);
  unsigned begun;
  unsigned ended;
  reloads(begun, ended);
  return {{"component", component_},
          {"version", version_.version},
          {"revision", version_.revision},
          {"pid", ::getpid()},
          {"uptime_seconds", uptime_seconds()},
          {"reactor", reactor_kind()},
          {"reloads", ended},
          {"last_failure", std::string(failure, failure_size)}};
}

// Libraries stay in memory until the process ends, so that the function is looked up once.
int Process_View::stalled_threads()
{
  const auto guard = std::find_if(services_.begin(), services_.end(), [](const Service& service) {
    return service.library.find("libstarter_guard.so") != std::string::npos;
  });
  if (guard == services_.end())
    return -1;

  if (!stalled_threads_)
    if (void* const library = ::dlopen(guard->library.c_str(), RTLD_NOLOAD | RTLD_LAZY))
      stalled_threads_ = reinterpret_cast<unsigned (*)()>(::dlsym(library, "starter_guard_stalled_threads"));
  return stalled_threads_ ? static_cast<int>(stalled_threads_()) : -1;
}
