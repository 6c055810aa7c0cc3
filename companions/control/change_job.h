#ifndef COMPANIONS_CONTROL_CHANGE_JOB_H
#define COMPANIONS_CONTROL_CHANGE_JOB_H

#include "companions/control/job.h"
#include "companions/control/process_view.h"
#include "companions/control/turn.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

/// A change of services, which the main thread makes between two callbacks. The one who asks for it and the main thread
/// share it.
struct Change
{
  enum Kind { SUSPEND, RESUME, REMOVE, RESTART, LOAD };

  Kind kind;
  std::string name;               ///< of the service; for LOAD empty
  std::string directive;          ///< for LOAD, and for RESTART: the directive, or empty if there is none
  std::vector<std::string> names; ///< for LOAD: the services that the directive loads
  Process_View* view = nullptr;

  std::string error; ///< empty for a success; true once is_done
  std::atomic<bool> is_begun{false};
  std::atomic<bool> is_done{false};
};

/// Make the change. Main thread, in the program's call.
void make_change(Change& change);

/// One of the commands "suspend", "resume", "remove", "restart" and "load".
class Change_Job : public Job
{
public:
  /// The change has its kind and name, or the directive and the names of a LOAD.
  Change_Job(Process_View& view, std::shared_ptr<Change> change);

  bool go_on(nlohmann::json& answer) override;

private:
  using Clock = std::chrono::steady_clock;

  bool begin();
  bool withdraw();

  Process_View& view_;
  Turn turn_;
  std::shared_ptr<Change> change_;
  std::shared_ptr<Change>* share_ = nullptr; // of the main thread, which deletes it; null before it is asked
  Clock::time_point since_;                  // when it was the turn of this change
};

#endif // COMPANIONS_CONTROL_CHANGE_JOB_H
