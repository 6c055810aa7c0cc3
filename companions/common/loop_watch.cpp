#include "companions/common/loop_watch.h"

#include <ace/DLL.h>
#include <ace/Dev_Poll_Reactor.h>
#include <ace/Priority_Reactor.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>
#include <ace/TP_Reactor.h>
#include <ace/Thread_Manager.h>

#include <algorithm>
#include <cstddef>

enum { LOOK_INTERVAL_USEC = 100000 };

bool is_loop_running()
{
  return ACE_Reactor::instance()->reactor_event_loop_done() == 0; // a look at a number, once there is a reactor
}

const char* reactor_kind()
{
  ACE_Reactor_Impl* const impl = ACE_Reactor::instance()->implementation();
  if (dynamic_cast<ACE_TP_Reactor*>(impl))
    return "tp";
  if (dynamic_cast<ACE_Dev_Poll_Reactor*>(impl))
    return "dev_poll";
  if (dynamic_cast<ACE_Priority_Reactor*>(impl))
    return "priority";
  return dynamic_cast<ACE_Select_Reactor*>(impl) ? "select" : "other";
}

unsigned count_loop_threads()
{
  ACE_Reactor_Impl* const impl = ACE_Reactor::instance()->implementation();
  if (!dynamic_cast<ACE_TP_Reactor*>(impl) && !dynamic_cast<ACE_Dev_Poll_Reactor*>(impl))
    return 1; // of the other kinds only one thread loops, however many there were

  return std::max(1u, static_cast<unsigned>(ACE_Thread_Manager::instance()->count_threads()));
}

int count_services(bool& is_loading)
{
  is_loading = false;
  ACE_Service_Repository& repository = *ACE_Service_Repository::instance();
  if (repository.lock().tryacquire() != 0)
    return -1;

  // A service without a type is one whose init is running, and one without a library is the framework's own.
  int count = 0;
  const ACE_Service_Type* service = nullptr;
  for (ACE_Service_Repository_Iterator i(repository, false); i.next(service) != 0; (void)i.advance())
    if (!service->type())
      is_loading = true;
    else if (service->dll().get_handle(false) != ACE_SHLIB_INVALID_HANDLE)
      ++count;

  (void)repository.lock().release();
  return count;
}

Loop_Watch::Loop_Watch(bool (*on_running)()) : on_running_(on_running)
{
  reference_counting_policy().value(ACE_Event_Handler::Reference_Counting_Policy::DISABLED);
}

int Loop_Watch::start()
{
  if (is_started_)
    return 0;

  reactor(ACE_Reactor::instance());
  is_started_ =
      reactor()->schedule_timer(this, nullptr, ACE_Time_Value::zero, ACE_Time_Value(0, LOOK_INTERVAL_USEC)) != -1;
  return is_started_ ? 0 : -1;
}

void Loop_Watch::stop()
{
  if (!is_started_)
    return;

  is_started_ = false;
  (void)reactor()->cancel_timer(this); // finds nothing after the loop has run
}

int Loop_Watch::handle_timeout(const ACE_Time_Value&, const void*)
{
  bool is_loading;
  if (count_services(is_loading) == -1 || is_loading)
    return 0;

  return on_running_() ? -1 : 0; // the timer goes, or stays
}
