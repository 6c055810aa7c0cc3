#ifndef COMPANIONS_CONTROL_JOB_H
#define COMPANIONS_CONTROL_JOB_H

#include <nlohmann/json_fwd.hpp>

#include <string>

/// A command that is under way: it waits for the main thread or for the loop. The thread of the control.
class Job
{
public:
  virtual ~Job() = default;

  /// Go on with the command as far as possible without waiting. Returns whether it is over, with its answer.
  virtual bool go_on(nlohmann::json& answer) = 0;
};

/// An answer that says why the command has failed, in one sentence.
nlohmann::json make_error(const std::string& sentence);

#endif // COMPANIONS_CONTROL_JOB_H
