#ifndef COMPANIONS_CONTROL_PROCESS_VIEW_H
#define COMPANIONS_CONTROL_PROCESS_VIEW_H

#include "companions/common/last_failure.h"
#include "companions/common/program_note.h"
#include "companions/control/configuration.h"
#include "companions/control/loop_ping.h"
#include "companions/control/record_capture.h"
#include "companions/control/service_list.h"

#include <nlohmann/json_fwd.hpp>

#include <atomic>
#include <map>
#include <string>
#include <vector>

/// The things that the control knows of its process. There is one object, which lives as long as the process. Unless
/// told otherwise, its functions are for the thread of the control, and wait for no lock that another thread holds for
/// long.
class Process_View
{
public:
  /// Look up the functions of the program, and take part in its loop and its log. `reason` tells why that fails. Once
  /// or after leave(). In the init of the service, main thread.
  bool enter(std::string& reason);

  /// Take enter() back. Main thread.
  void leave();

  /// The object of the service that is loaded now, which must not be removed; null for none. Main thread.
  void set_own_object(const void* object) { own_object_ = object; }
  const void* own_object() const { return own_object_; }

  /// Look at the services, and at the configuration if it has been loaded anew, unless services are being changed:
  /// what was known before stays then. Returns whether nothing was being changed.
  bool refresh();

  /// Whether the configuration that the program has loaded is known. It is from the first refresh() after the start.
  bool knows_wanted() const { return knows_wanted_; }

  bool is_reloading() const;

  const std::vector<Service>& services() const { return services_; }
  const Wanted_Services& wanted() const { return wanted_; }

  /// The known service of the name, or null.
  const Service* find(const std::string& name) const;

  /// The services of the configuration that are not there, and those that are suspended against its will.
  std::vector<std::string> missing() const;
  std::vector<std::string> suspended() const;

  /// "starting", "running", "reloading" or "stopping".
  const char* state();

  nlohmann::json describe() const;          ///< the facts of "status" that stand alone
  nlohmann::json describe_services() const; ///< the list of "services"

  /// The number of threads that the guard calls stalled, -1 if the guard is not loaded.
  int stalled_threads();

  /// The directive that loads the service of this name, as the configuration has it or a client gave it; empty if there
  /// is none.
  std::string directive_of(const std::string& name) const;
  void remember_directive(const std::string& name, const std::string& directive) { given_[name] = directive; }

  void reloads(unsigned& begun, unsigned& ended) const { reloads_(&begun, &ended); }
  starter_loops_t loops() const { return loops_; }
  starter_call_t call() const { return call_; }

  Record_Capture& capture() { return capture_; }
  Loop_Ping& ping() { return ping_; }

  /// A change of services is being made in the main thread. Any thread.
  void set_changing(bool is_changing) { is_changing_ = is_changing; }

private:
  bool has_loop_run();

  starter_loops_t loops_ = nullptr;
  starter_reloads_t reloads_ = nullptr;
  starter_call_t call_ = nullptr;
  Program_Version version_ = {"unknown", "unknown"};
  std::string component_;

  Record_Capture capture_;
  Last_Failure last_failure_;
  Loop_Ping ping_;
  Configuration configuration_;
  const void* own_object_ = nullptr;
  std::atomic<bool> is_changing_{false};

  bool has_loop_run_ = false;
  bool knows_wanted_ = false;
  unsigned wanted_reloads_ = 0; // the number of reloads when wanted_ was read
  Wanted_Services wanted_;
  std::vector<Service> services_;
  std::map<std::string, std::string> given_; // the directives of clients
  unsigned (*stalled_threads_)() = nullptr;  // of the guard
};

#endif // COMPANIONS_CONTROL_PROCESS_VIEW_H
