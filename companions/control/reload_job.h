#ifndef COMPANIONS_CONTROL_RELOAD_JOB_H
#define COMPANIONS_CONTROL_RELOAD_JOB_H

#include "companions/control/job.h"
#include "companions/control/process_view.h"
#include "companions/control/turn.h"

#include <chrono>
#include <set>
#include <string>

/// The command "reload": sends the process the hang-up signal, and tells what has become of the services. The verdict
/// is about a reload that has begun after the command, and about nothing else: while others reload too, it waits.
class Reload_Job : public Job
{
public:
  explicit Reload_Job(Process_View& view) : view_(view) {}
  ~Reload_Job() override;

  bool go_on(nlohmann::json& answer) override;

private:
  using Clock = std::chrono::steady_clock;
  enum class Step { TURN, SIGNAL, END };

  bool begin();
  bool has_ended() const;
  bool is_given_up();
  nlohmann::json tell() const;

  Process_View& view_;
  Turn turn_;
  Step step_ = Step::TURN;
  unsigned begun_ = 0; // the number of reloads before
  std::set<std::string> before_;
  Clock::time_point sent_;
  bool is_sent_again_ = false;
};

#endif // COMPANIONS_CONTROL_RELOAD_JOB_H
