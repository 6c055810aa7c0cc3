#include "companions/control/health_job.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

using nlohmann::json;

static constexpr std::chrono::seconds PATIENCE(1);

enum Health { GOOD, WARNING, CRITICAL }; // as monitoring plug-ins tell it

namespace
{
/// The findings, and the worst of them.
struct Findings
{
  Health health = GOOD;
  std::string text;

  void add(Health finding, const std::string& words)
  {
    health = std::max(health, finding);
    text += (text.empty() ? "" : "; ") + words;
  }

  void add_names(Health finding, const std::string& words, const std::vector<std::string>& names)
  {
    if (names.empty())
      return;
    std::string list;
    for (const std::string& name : names)
      list += (list.empty() ? "" : ", ") + name;
    add(finding, words + list);
  }
};
} // namespace

Health_Job::Health_Job(Process_View& view) : view_(view), begin_(Clock::now()), question_(view.ping().ask()) {}

json Health_Job::tell(bool is_loop_answering, bool is_settled) const
{
  static const char* const marks[] = {"OK", "WARNING", "CRITICAL"};
  const std::string state = view_.state();
  const std::vector<std::string> missing = view_.missing();
  const std::vector<std::string> suspended = view_.suspended();
  const int stalled = view_.stalled_threads();

  Findings findings;
  if (state == "running" && !is_settled)
    findings.add(WARNING, "services are being changed");
  else if (state != "running")
    findings.add(WARNING, "the process is " + state);
  else if (!is_loop_answering)
    findings.add(CRITICAL, "the event loop does not answer within a second");
  findings.add_names(CRITICAL, "missing: ", missing);
  findings.add_names(WARNING, "suspended: ", suspended);
  if (stalled > 0)
    findings.add(CRITICAL, "stalled threads: " + std::to_string(stalled));

  const std::string words = findings.text.empty() ? "all services of the configuration are active" : findings.text;
  return {{"ok", true},
          {"status", static_cast<int>(findings.health)},
          {"text", std::string(marks[findings.health]) + ": " + words},
          {"loop_answers", is_loop_answering},
          {"missing", missing},
          {"suspended", suspended},
          {"stalled_threads", stalled >= 0 ? json(stalled) : json()}};
}

bool Health_Job::go_on(json& answer)
{
  const bool is_answering = view_.ping().has_answered(question_);
  const bool is_settled = view_.refresh();
  if ((!is_answering || !is_settled) && Clock::now() - begin_ < PATIENCE)
    return false;

  answer = tell(is_answering, is_settled);
  return true;
}
