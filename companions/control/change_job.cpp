#include "companions/control/change_job.h"

#include "scrt/log.h"

#include <ace/Service_Config.h>
#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>

#include <nlohmann/json.hpp>

#include <utility>

using nlohmann::json;

static constexpr std::chrono::seconds PATIENCE(10); // until the main thread comes to a change

// ---- In the main thread

static const ACE_Service_Type* find_service(const std::string& name)
{
  const ACE_Service_Type* service = nullptr;
  return ACE_Service_Repository::instance()->find(name.c_str(), &service, false) == 0 ? service : nullptr;
}

static std::string no_service(const std::string& name)
{
  return "There is no service '" + name + "'.";
}

// The reason why the framework does not load the service.
static std::string not_loaded(const Change& change, const std::string& name)
{
  std::string reason = change.view->capture().reason(name);
  if (reason.empty())
    reason = change.view->capture().general_reason();
  return "The service '" + name + "' was not started: " + (reason.empty() ? "the framework gives no reason" : reason) +
         '.';
}

// Empty if the service may be changed.
static std::string refuse(const Change& change, const ACE_Service_Type* service)
{
  if (!service)
    return change.kind == Change::RESTART && !change.directive.empty() ? "" : no_service(change.name);
  const ACE_Service_Type_Impl* const impl = service->type();
  if (!impl)
    return "The service '" + change.name + "' is being initialised.";
  if (impl->object() == change.view->own_object())
    return "The service '" + change.name + "' is the control itself, which cannot be changed through itself.";

  const bool is_taken_away = change.kind == Change::REMOVE || change.kind == Change::RESTART;
  if (is_taken_away && !dynamic_cast<const ACE_Service_Object_Type*>(impl))
    return "'" + change.name + "' is a stream or a module of one, which the framework cannot take away alone.";
  if (change.kind == Change::RESTART && change.directive.empty())
    return "The configuration has no directive that loads the service '" + change.name + "'.";
  if (change.kind == Change::SUSPEND && service->active() == 0)
    return "The service '" + change.name + "' is suspended already.";
  if (change.kind == Change::RESUME && service->active() != 0)
    return "The service '" + change.name + "' is not suspended.";
  return "";
}

static std::string load(const Change& change, const std::vector<std::string>& names)
{
  (void)ACE_Service_Config::process_directive(change.directive.c_str()); // what is there now tells more than the result
  for (const std::string& name : names)
    if (!find_service(name))
      return not_loaded(change, name);
  return "";
}

static std::string load_new(const Change& change)
{
  for (const std::string& name : change.names)
    if (find_service(name))
      return "There is a service '" + name + "' already.";
  return load(change, change.names);
}

static std::string apply(const Change& change)
{
  if (change.kind == Change::LOAD)
    return load_new(change);

  const ACE_Service_Type* const service = find_service(change.name);
  if (std::string reason = refuse(change, service); !reason.empty())
    return reason;

  int result = 0;
  if (change.kind == Change::SUSPEND)
    result = ACE_Service_Config::suspend(change.name.c_str());
  else if (change.kind == Change::RESUME)
    result = ACE_Service_Config::resume(change.name.c_str());
  else if (service)
    result = ACE_Service_Config::remove(change.name.c_str());
  if (result == -1)
    return "The service '" + change.name + "' has answered with a failure.";
  return change.kind == Change::RESTART ? load(change, {change.name}) : "";
}

void make_change(Change& change)
{
  static const char* const verbs[] = {"suspend", "resume", "remove", "restart", "load"};
  const std::string& name = change.kind == Change::LOAD ? change.names[0] : change.name;

  change.view->capture().begin();
  change.error = apply(change);
  change.view->capture().end();
  if (change.error.empty())
    LOG_RECORD(LM_INFO, "Control: %C %C\n", verbs[change.kind], name.c_str());
  else
    LOG_FAILED(LM_ERROR, "Control: failed to %C %C: %C\n", verbs[change.kind], name.c_str(), change.error.c_str());
}

// The main thread has its own share of the change.
static void make_shared_change(void* arg)
{
  const std::unique_ptr<std::shared_ptr<Change>> share(static_cast<std::shared_ptr<Change>*>(arg));
  Change& change = **share;
  change.is_begun = true;
  make_change(change);
  change.view->set_changing(false);
  change.is_done = true;
}

// ---- In the thread of the control

Change_Job::Change_Job(Process_View& view, std::shared_ptr<Change> change) : view_(view), change_(std::move(change))
{
  change_->view = &view;
}

// During a reload the change waits in the program, and is made after it.
bool Change_Job::begin()
{
  if (!turn_.take())
    return false;
  if (since_ == Clock::time_point())
    since_ = Clock::now();
  if (!view_.refresh() && !view_.is_reloading())
    return false;

  if (change_->kind == Change::RESTART)
    change_->directive = view_.directive_of(change_->name);
  auto share = std::make_unique<std::shared_ptr<Change>>(change_);
  view_.set_changing(true); // before the main thread takes that back
  if (view_.call()(make_shared_change, share.get()) == 0) {
    view_.set_changing(false);
    return false;
  }
  share_ = share.release();
  return true;
}

// False if the main thread has begun.
bool Change_Job::withdraw()
{
  if (share_ && view_.call()(nullptr, nullptr) == 0)
    return false;

  delete share_;
  share_ = nullptr;
  view_.set_changing(false);
  return true;
}

bool Change_Job::go_on(json& answer)
{
  if (share_ || begin()) {
    if (change_->is_done) {
      answer = change_->error.empty() ? json{{"ok", true}} : make_error(change_->error);
      if (change_->kind == Change::LOAD && change_->error.empty())
        view_.remember_directive(change_->names[0], change_->directive);
      return true;
    }
    if (change_->is_begun)
      return false; // however long it takes
  }

  if (since_ == Clock::time_point() || Clock::now() - since_ < PATIENCE || !withdraw())
    return false;
  answer = make_error("Nothing was changed: for ten seconds, the main thread has not come to the end of a callback or "
                      "of a reload.");
  return true;
}
