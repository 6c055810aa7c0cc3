#include "companions/control/commands.h"

#include "companions/control/change_job.h"
#include "companions/control/health_job.h"
#include "companions/control/reload_job.h"
#include "companions/control/threads.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <nlohmann/json.hpp>

#include <utility>

using nlohmann::json;

json make_error(const std::string& sentence)
{
  return {{"ok", false}, {"error", sentence}};
}

// ---- Commands that are answered at once

static json status(Process_View& view)
{
  (void)view.refresh(); // else the state that was known last has to do
  json answer = view.describe();
  answer["ok"] = true;
  answer["state"] = view.state();
  answer["threads"] = describe_loop_threads(view.loops());
  answer["services"] = view.describe_services();
  return answer;
}

static json set_log_level(const std::string& name)
{
  static const std::pair<const char*, ACE_Log_Priority> levels[] = {
      {"debug", LM_DEBUG}, {"info", LM_INFO},         {"notice", LM_NOTICE}, {"warning", LM_WARNING},
      {"error", LM_ERROR}, {"critical", LM_CRITICAL}, {"alert", LM_ALERT},   {"emergency", LM_EMERGENCY}};
  for (const auto& [level, priority] : levels)
    if (level == name) {
      // The framework's priorities are bits, and grow with the urgency.
      const u_long all = 2 * static_cast<u_long>(LM_EMERGENCY) - 1;
      const u_long below = static_cast<u_long>(priority) - 1;
      (void)ACE_LOG_MSG->priority_mask(all & ~below, ACE_Log_Msg::PROCESS);
      return {{"ok", true}};
    }
  return make_error("There is no priority '" + name +
                    "': it is debug, info, notice, warning, error, critical, alert or emergency.");
}

// ---- The table of commands

namespace
{
/// The kind of the one member that a request has besides the command.
enum class Member { NONE, TEXT, SWITCH };

using Carry_Out = std::unique_ptr<Job> (*)(const json& member, Process_View& view, json& answer);

struct Command
{
  const char* name;
  Member kind;
  const char* member;
  Carry_Out carry_out;
};
} // namespace

template <Change::Kind KIND>
static std::unique_ptr<Job> change(const json& name, Process_View& view, json&)
{
  auto change = std::make_shared<Change>();
  change->kind = KIND;
  change->name = name.get<std::string>();
  return std::make_unique<Change_Job>(view, std::move(change));
}

static std::unique_ptr<Job> load(const json& directive, Process_View& view, json& answer)
{
  auto change = std::make_shared<Change>();
  change->kind = Change::LOAD;
  change->directive = directive.get<std::string>();
  std::string reason;
  change->names = read_load_directive(change->directive, reason);
  if (change->names.empty()) {
    answer = make_error("Nothing is loaded: " + reason + '.');
    return nullptr;
  }
  return std::make_unique<Change_Job>(view, std::move(change));
}

static const Command COMMANDS[] = {
    {"status", Member::NONE, "",
     [](const json&, Process_View& view, json& answer) {
       answer = status(view);
       return std::unique_ptr<Job>();
     }},
    {"services", Member::NONE, "",
     [](const json&, Process_View& view, json& answer) {
       (void)view.refresh();
       answer = {{"ok", true}, {"services", view.describe_services()}};
       return std::unique_ptr<Job>();
     }},
    {"health", Member::NONE, "",
     [](const json&, Process_View& view, json&) -> std::unique_ptr<Job> { return std::make_unique<Health_Job>(view); }},
    {"reload", Member::NONE, "",
     [](const json&, Process_View& view, json&) -> std::unique_ptr<Job> { return std::make_unique<Reload_Job>(view); }},
    {"suspend", Member::TEXT, "name", change<Change::SUSPEND>},
    {"resume", Member::TEXT, "name", change<Change::RESUME>},
    {"remove", Member::TEXT, "name", change<Change::REMOVE>},
    {"restart", Member::TEXT, "name", change<Change::RESTART>},
    {"load", Member::TEXT, "directive", load},
    {"log-level", Member::TEXT, "priority",
     [](const json& priority, Process_View&, json& answer) {
       answer = set_log_level(priority.get<std::string>());
       return std::unique_ptr<Job>();
     }},
    {"debug", Member::SWITCH, "on",
     [](const json& on, Process_View&, json& answer) {
       ACE::debug(on.get<bool>());
       answer = {{"ok", true}};
       return std::unique_ptr<Job>();
     }},
    {"trace", Member::NONE, "",
     [](const json&, Process_View&, json& answer) {
       answer = {{"ok", true}, {"threads", trace_threads()}};
       return std::unique_ptr<Job>();
     }},
};

// ---- Requests

static const Command* find_command(const std::string& name)
{
  for (const Command& command : COMMANDS)
    if (command.name == name)
      return &command;
  return nullptr;
}

// Empty if the members of the request are those of the command.
static std::string check_members(const json& request, const Command& command)
{
  for (const auto& [key, value] : request.items())
    if (key != "command" && key != command.member)
      return "The command '" + std::string(command.name) + "' has no member '" + key + "'.";
  if (command.kind == Member::NONE)
    return "";

  std::string needed = "The command '" + std::string(command.name) + "' needs the member '" + command.member +
                       (command.kind == Member::TEXT ? "', a text." : "', true or false.");
  const auto member = request.find(command.member);
  if (member == request.end() || (command.kind == Member::TEXT ? !member->is_string() : !member->is_boolean()))
    return needed;
  if (command.kind == Member::TEXT && member->get_ref<const std::string&>().find('\0') != std::string::npos)
    return "The member '" + std::string(command.member) + "' has a null character.";
  return "";
}

std::unique_ptr<Job> carry_out(const std::string& text, Process_View& view, json& answer)
{
  const json request = json::parse(text, nullptr, false);
  if (request.is_discarded() || !request.is_object()) {
    answer = make_error("The request is no JSON object in a line.");
    return nullptr;
  }
  const auto name = request.find("command");
  if (name == request.end() || !name->is_string()) {
    answer = make_error("The request has no member 'command', a text.");
    return nullptr;
  }
  const Command* const command = find_command(name->get<std::string>());
  if (!command) {
    answer = make_error("There is no command '" + name->get<std::string>() + "'.");
    return nullptr;
  }
  if (const std::string reason = check_members(request, *command); !reason.empty()) {
    answer = make_error(reason);
    return nullptr;
  }
  const auto member = request.find(command->member);
  return command->carry_out(member != request.end() ? *member : json(), view, answer);
}
