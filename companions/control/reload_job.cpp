#include "companions/control/reload_job.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

using nlohmann::json;

static constexpr std::chrono::seconds AGAIN(10);    // a hang-up that is not served can have become one with a timer's
static constexpr std::chrono::seconds PATIENCE(60); // until a reload begins

Reload_Job::~Reload_Job()
{
  if (step_ == Step::END)
    view_.capture().end();
}

// A hang-up as an operator sends it, but to the main thread in any case: while this one is still in the signal handler
// of the reload before, a thread of a pool would take the signal, and could leave the loop for it.
static void send_hang_up()
{
  (void)::syscall(SYS_tgkill, ::getpid(), ::getpid(), SIGHUP);
}

// While another reload is under way, the records would be a mixture.
bool Reload_Job::begin()
{
  if (!turn_.take() || !view_.refresh())
    return false;

  for (const Service& service : view_.services())
    before_.insert(service.name);
  view_.capture().begin();
  unsigned ended;
  view_.reloads(begun_, ended);
  sent_ = Clock::now();
  send_hang_up();
  step_ = Step::END;
  return true;
}

bool Reload_Job::has_ended() const
{
  unsigned begun;
  unsigned ended;
  view_.reloads(begun, ended);
  return static_cast<int>(ended - begun_) > 0;
}

bool Reload_Job::is_given_up()
{
  unsigned begun;
  unsigned ended;
  view_.reloads(begun, ended);
  if (begun != begun_)
    return false; // it goes on, for as long as it takes

  const Clock::duration waited = Clock::now() - sent_;
  if (waited > AGAIN && !is_sent_again_) {
    is_sent_again_ = true;
    send_hang_up();
  }
  return waited > PATIENCE;
}

static json names_in_both(const std::set<std::string>& names, const std::set<std::string>& others)
{
  json both = json::array();
  std::set_intersection(names.begin(), names.end(), others.begin(), others.end(), std::back_inserter(both));
  return both;
}

json Reload_Job::tell() const
{
  const Record_Capture& capture = view_.capture();
  const std::vector<std::string> missing = view_.missing();
  json failed = json::array();
  for (const std::string& name : capture.failed())
    if (!view_.find(name)) // a later directive, or a later reload, may have started it
      failed.push_back({{"name", name}, {"reason", capture.reason(name)}});

  json started = json::array();
  for (const std::string& name : capture.started())
    if (view_.find(name))
      started.push_back(name);
  json answer = {{"ok", missing.empty() && failed.empty() && capture.general_reason().empty()},
                 {"started", started},
                 {"ended", names_in_both(capture.ended(), before_)},
                 {"failed", failed},
                 {"missing", missing}};
  if (!capture.general_reason().empty())
    answer["error"] = capture.general_reason();
  else if (!answer["ok"])
    answer["error"] = "Not every service of the configuration is there after the reload.";
  return answer;
}

bool Reload_Job::go_on(json& answer)
{
  if (step_ == Step::TURN && !begin())
    return false;

  if (!has_ended()) {
    if (!is_given_up())
      return false;
    answer = make_error("No reload has begun for a minute: a service has taken over the hang-up signal, or the loop "
                        "cannot be left.");
    return true;
  }
  if (!view_.refresh())
    return false; // somebody else reloads by now
  answer = tell();
  return true;
}
