#ifndef COMPANIONS_CONTROL_COMMANDS_H
#define COMPANIONS_CONTROL_COMMANDS_H

#include "companions/control/job.h"
#include "companions/control/process_view.h"

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <string>

/// Carry out a request, a line without its end. Returns null and the answer, or the command that is under way. The
/// thread of the control.
std::unique_ptr<Job> carry_out(const std::string& request, Process_View& view, nlohmann::json& answer);

#endif // COMPANIONS_CONTROL_COMMANDS_H
