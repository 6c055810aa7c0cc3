#include "ctl/commands.h"

#include "ctl/table.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// A change takes as long as the services take to start and to end. A trace waits for each thread.
enum { QUESTION_SEC = 10, TRACE_SEC = 60, CHANGE_SEC = 300 };

// ---- The answers as texts for people

static std::string format_services(const Json& answer, const std::string&, Reader& reader)
{
  Rows rows{{"SERVICE", "TYPE", "STATE", "LIBRARY"}};
  for (const Json& service : reader.list(answer, "services"))
    rows.push_back({reader.text(service, "name"), reader.text(service, "type"), reader.text(service, "state"),
                    reader.text(service, "library")});
  return format_table(rows);
}

static std::string format_threads(const Json& answer, Reader& reader)
{
  Rows rows{{"THREAD", "NAME", "STATE", "TURNS"}};
  for (const Json& thread : reader.list(answer, "threads"))
    rows.push_back({std::to_string(reader.number(thread, "tid")), reader.text(thread, "name"),
                    reader.text(thread, "state"), std::to_string(reader.number(thread, "turns"))});
  return format_table(rows, {0, 3});
}

static std::string format_status(const Json& answer, const std::string& word, Reader& reader)
{
  const std::string failure = reader.text(answer, "last_failure");
  const Rows rows{{"Component:", reader.text(answer, "component")},
                  {"Version:", reader.text(answer, "version") + " (rev " + reader.text(answer, "revision") + ')'},
                  {"Process:", std::to_string(reader.number(answer, "pid"))},
                  {"State:", reader.text(answer, "state")},
                  {"Uptime:", format_duration(reader.number(answer, "uptime_seconds"))},
                  {"Reactor:", reader.text(answer, "reactor")},
                  {"Reloads:", std::to_string(reader.number(answer, "reloads"))},
                  {"Last failure:", failure.empty() ? "none" : failure}};
  return format_table(rows) + '\n' + format_threads(answer, reader) + '\n' + format_services(answer, word, reader);
}

static std::string format_health(const Json& answer, const std::string&, Reader& reader)
{
  (void)reader.number(answer, "status"); // the text tells it too, but it has to be there
  return format_table({{reader.text(answer, "text")}});
}

static std::string format_failures(const Json& answer, Reader& reader)
{
  std::string text;
  for (const Json& failure : reader.list(answer, "failed"))
    text += (text.empty() ? "" : ", ") + reader.text(failure, "name") + " (" + reader.text(failure, "reason") + ')';
  return text;
}

// A reload that is refused tells nothing of services.
static std::string format_reload(const Json& answer, const std::string&, Reader& reader)
{
  Rows rows;
  const auto add = [&](const char* title, const std::string& text) {
    if (!text.empty())
      rows.push_back({title, text});
  };
  const auto names = [&](const char* name) { return answer.contains(name) ? reader.names(answer, name) : ""; };

  add("Ended:", names("ended"));
  add("Started:", names("started"));
  add("Failed:", answer.contains("failed") ? format_failures(answer, reader) : "");
  add("Missing:", names("missing"));
  return format_table(rows);
}

// The function comes last, as its name in C++ may be long.
static Rows make_frames(const Json& thread, Reader& reader)
{
  Rows rows;
  for (const Json& frame : reader.list(thread, "frames")) {
    std::string place = reader.text(frame, "module"); // empty for code that is in no file
    place += (place.empty() ? "" : "+") + reader.text(frame, "offset");
    rows.push_back(
        {"#" + std::to_string(rows.size()), reader.text(frame, "address"), place, reader.text(frame, "function")});
  }
  return rows;
}

static std::string format_trace(const Json& answer, const std::string&, Reader& reader)
{
  std::string text;
  for (const Json& thread : reader.list(answer, "threads")) {
    const Rows frames = make_frames(thread, reader);
    std::string title = "Thread " + std::to_string(reader.number(thread, "tid")) + " (";
    title += reader.text(thread, "name") + (frames.empty() ? "): no back trace" : "):");
    text += (text.empty() ? "" : "\n") + format_table({{title}}) + format_table(frames);
  }
  return text;
}

static std::string sentence(const std::string& text)
{
  return format_table({{text}});
}

static std::string format_suspend(const Json&, const std::string& word, Reader&)
{
  return sentence("The service " + word + " is suspended.");
}

static std::string format_resume(const Json&, const std::string& word, Reader&)
{
  return sentence("The service " + word + " is active again.");
}

static std::string format_remove(const Json&, const std::string& word, Reader&)
{
  return sentence("The service " + word + " is removed.");
}

static std::string format_restart(const Json&, const std::string& word, Reader&)
{
  return sentence("The service " + word + " is restarted.");
}

static std::string format_load(const Json&, const std::string&, Reader&)
{
  return sentence("The directive is carried out.");
}

static std::string format_log_level(const Json&, const std::string& word, Reader&)
{
  return sentence("Records from the priority " + word + " on are logged until the next start.");
}

static std::string format_debug(const Json&, const std::string& word, Reader&)
{
  return sentence("The debug records of the framework are " + word + " until the next start.");
}

// ---- The commands

const std::vector<Command>& commands()
{
  static const std::vector<Command> COMMANDS{
      {LIST_COMMAND, nullptr, nullptr, 0, nullptr},
      {"status", nullptr, nullptr, QUESTION_SEC, format_status},
      {"services", nullptr, nullptr, QUESTION_SEC, format_services},
      {HEALTH_COMMAND, nullptr, nullptr, QUESTION_SEC, format_health},
      {RELOAD_COMMAND, nullptr, nullptr, CHANGE_SEC, format_reload},
      {"suspend", "NAME", "name", CHANGE_SEC, format_suspend},
      {"resume", "NAME", "name", CHANGE_SEC, format_resume},
      {"remove", "NAME", "name", CHANGE_SEC, format_remove},
      {"restart", "NAME", "name", CHANGE_SEC, format_restart},
      {"load", "DIRECTIVE", "directive", CHANGE_SEC, format_load},
      {"log-level", "PRIORITY", "priority", QUESTION_SEC, format_log_level},
      {"debug", "on | off", "on", QUESTION_SEC, format_debug},
      {"trace", nullptr, nullptr, TRACE_SEC, format_trace},
  };
  return COMMANDS;
}

const Command* find_command(const std::string& name)
{
  const auto at =
      std::find_if(commands().begin(), commands().end(), [&](const Command& command) { return name == command.name; });
  return at == commands().end() ? nullptr : &*at;
}

static bool is_member(const Command& command, const char* member)
{
  return command.member && std::strcmp(command.member, member) == 0;
}

std::string check_argument(const Command& command, const std::string& word)
{
  static constexpr const char* PRIORITIES[] = {"debug", "info",     "notice", "warning",
                                               "error", "critical", "alert",  "emergency"};

  if (word.empty())
    return std::string("the command ") + command.name + " takes no empty argument";
  if (is_member(command, "on") && word != "on" && word != "off")
    return "the command debug takes on or off";
  if (is_member(command, "priority") &&
      std::find(std::begin(PRIORITIES), std::end(PRIORITIES), word) == std::end(PRIORITIES))
    return "there is no priority '" + word + "'; the priorities are debug, info, notice, warning, error, critical, " +
           "alert and emergency";
  return "";
}

std::string make_request(const Command& command, const std::string& word)
{
  Json request = {{"command", command.name}};
  if (is_member(command, "on"))
    request["on"] = word == "on";
  else if (command.member)
    request[command.member] = word;
  return request.dump(-1, ' ', false, Json::error_handler_t::replace);
}
