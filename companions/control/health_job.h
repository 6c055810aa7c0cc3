#ifndef COMPANIONS_CONTROL_HEALTH_JOB_H
#define COMPANIONS_CONTROL_HEALTH_JOB_H

#include "companions/control/job.h"
#include "companions/control/process_view.h"

#include <chrono>

/// The command "health": waits for a second at most, until the loop answers and no service is being changed.
class Health_Job : public Job
{
public:
  explicit Health_Job(Process_View& view);

  bool go_on(nlohmann::json& answer) override;

private:
  using Clock = std::chrono::steady_clock;

  nlohmann::json tell(bool is_loop_answering, bool is_settled) const;

  Process_View& view_;
  const Clock::time_point begin_;
  const unsigned question_;
};

#endif // COMPANIONS_CONTROL_HEALTH_JOB_H
