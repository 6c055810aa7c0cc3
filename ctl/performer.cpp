#include "ctl/performer.h"

#include "check/characters.h"
#include "ctl/checker.h"
#include "ctl/connection.h"
#include "ctl/sockets.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <signal.h>
#include <sys/stat.h>

static std::string remark(const std::string& text)
{
  return "starterctl: " + escape_controls(text) + '\n';
}

static bool is(const Command& command, const char* name)
{
  return std::strcmp(command.name, name) == 0;
}

Outcome not_asked(const Arguments& arguments, const std::string& problem)
{
  const bool is_health = arguments.command && is(*arguments.command, HEALTH_COMMAND);
  const int status = is_health ? UNKNOWN : NOT_ASKED;
  if (arguments.is_json)
    return {status, make_line({{"ok", false}, {"error", problem}}), ""};
  if (is_health) // monitoring reads the standard output
    return {status, "UNKNOWN: " + escape_controls(problem) + '\n', ""};
  return {status, "", remark(problem)};
}

// ---- The answer

static int status_of(const Arguments& arguments, const Answer& answer, Reader& reader)
{
  if (!is(*arguments.command, HEALTH_COMMAND))
    return answer.is_done ? DONE : REFUSED;
  const long long health = answer.is_done ? reader.number(answer.json, "status") : -1;
  const bool is_known = reader.problem().empty() && health >= 0 && health < UNKNOWN;
  return is_known ? static_cast<int>(health) : UNKNOWN;
}

// A reload that has lost services tells which.
static std::string text_of(const Arguments& arguments, const Answer& answer, Reader& reader)
{
  const bool has_text = answer.is_done || is(*arguments.command, RELOAD_COMMAND);
  return has_text ? arguments.command->format(answer.json, arguments.word, reader) : "";
}

static Outcome tell(const Arguments& arguments, const std::string& line)
{
  const std::string not_understood = "the answer of the process is not understood: ";
  Answer answer;
  const std::string problem = parse_answer(line, answer);
  if (!problem.empty())
    return not_asked(arguments, not_understood + problem);

  Reader reader;
  const int status = status_of(arguments, answer, reader);
  const std::string text = text_of(arguments, answer, reader);
  if (arguments.is_json)
    return {status, make_harmless(line) + '\n', ""};
  if (!reader.problem().empty())
    return not_asked(arguments, not_understood + reader.problem());
  if (!answer.is_done && is(*arguments.command, HEALTH_COMMAND))
    return not_asked(arguments, answer.error);
  return {status, text, answer.is_done ? "" : remark(answer.error)};
}

// ---- Asking

static Deadline deadline_of(const Arguments& arguments)
{
  const unsigned seconds = arguments.timeout_sec != 0 ? arguments.timeout_sec : arguments.command->timeout_sec;
  return std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
}

static Outcome ask(const Arguments& arguments, Connection& connection, Deadline deadline)
{
  std::string line;
  if (!connection.ask(make_request(*arguments.command, arguments.word), line, deadline))
    return not_asked(arguments, connection.problem());
  return tell(arguments, line);
}

// ---- Reload

static Outcome send_hang_up(const Arguments& arguments)
{
  const std::string pid = std::to_string(arguments.signalled_pid);
  if (kill(arguments.signalled_pid, SIGHUP) != 0)
    return not_asked(arguments, "cannot send a hang-up to the process " + pid + ": " + std::strerror(errno));
  if (arguments.is_json)
    return {DONE, make_line({{"ok", true}, {"signalled", arguments.signalled_pid}}), ""};
  return {DONE, "Nobody listens at the control socket: the process " + pid + " has got a hang-up.\n", ""};
}

static Outcome refuse(const Arguments& arguments, const Check& check)
{
  const std::string problem = check.result == Check::REFUSED
                                  ? "the configuration has errors, and nothing is reloaded"
                                  : "the configuration cannot be checked, and nothing is reloaded: " + check.problem;
  if (check.result == Check::FAILED) {
    Outcome outcome = not_asked(arguments, problem);
    outcome.err = check.text + outcome.err;
    return outcome;
  }
  if (!arguments.is_json)
    return {REFUSED, "", check.text + remark(problem)};
  return {REFUSED, make_line({{"ok", false}, {"error", problem}, {"findings", check.findings}}), ""};
}

static uid_t owner_of_process(pid_t pid)
{
  struct stat status = {};
  return stat(("/proc/" + std::to_string(pid)).c_str(), &status) == 0 ? status.st_uid : static_cast<uid_t>(-1);
}

static Outcome reload(const Arguments& arguments, const std::string& socket)
{
  const Deadline deadline = deadline_of(arguments);
  Connection connection;
  const bool is_open = connection.open(socket, deadline);
  const bool is_signal = !is_open && connection.is_absent() && arguments.signalled_pid != 0;
  if (!is_open && !is_signal)
    return not_asked(arguments, connection.problem());

  Check check;
  if (!arguments.is_forced) {
    const pid_t pid = is_signal ? arguments.signalled_pid : connection.pid();
    check = check_process(pid, is_signal ? owner_of_process(pid) : connection.uid(), deadline);
    if (check.result != Check::PASSED)
      return refuse(arguments, check);
  }

  Outcome outcome = is_signal ? send_hang_up(arguments) : ask(arguments, connection, deadline);
  if (!arguments.is_json)
    outcome.err = check.text + outcome.err;
  return outcome;
}

// ---- The commands

static Outcome list_components(const Arguments& arguments, const std::string& runtime_dir)
{
  const std::vector<std::string> names = find_components(runtime_dir);
  if (arguments.is_json)
    return {DONE, make_line({{"ok", true}, {"components", names}}), ""};
  std::string text;
  for (const std::string& name : names)
    text += escape_controls(name) + '\n';
  return {DONE, text, ""};
}

Outcome perform(const Arguments& arguments, const std::string& runtime_dir)
{
  if (is(*arguments.command, LIST_COMMAND))
    return list_components(arguments, runtime_dir);

  std::string socket = arguments.socket;
  if (!arguments.component.empty())
    socket = socket_of(runtime_dir, arguments.component);
  if (socket.empty()) {
    const std::string problem = find_only_socket(runtime_dir, socket);
    if (!problem.empty())
      return not_asked(arguments, problem);
  }
  if (is(*arguments.command, RELOAD_COMMAND))
    return reload(arguments, socket);

  const Deadline deadline = deadline_of(arguments);
  Connection connection;
  if (!connection.open(socket, deadline))
    return not_asked(arguments, connection.problem());
  return ask(arguments, connection, deadline);
}
