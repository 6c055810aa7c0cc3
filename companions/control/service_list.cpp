#include "companions/control/service_list.h"

#include "companions/guard/symbols.h"

#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>

#include <cstdint>
#include <utility>

#include <time.h>

enum { TRIES = 20, PAUSE_NSEC = 1000000 };

static bool lock(ACE_Service_Repository& repository)
{
  for (int tries = 0; repository.lock().tryacquire() != 0; ++tries) {
    if (tries == TRIES)
      return false;
    const timespec pause = {0, PAUSE_NSEC};
    (void)::nanosleep(&pause, nullptr); // a shorter pause does no harm
  }
  return true;
}

static const char* name_of_type(const ACE_Service_Type_Impl* impl)
{
  if (dynamic_cast<const ACE_Module_Type*>(impl))
    return "module";
  return dynamic_cast<const ACE_Stream_Type*>(impl) ? "stream" : "service";
}

// Asking the framework for it takes a lock, and writes records while its debug records are on. The table of the virtual
// functions of a service lies in its library. Those of streams and modules are instances of templates, which libraries
// share.
static std::string library_of(const ACE_Service_Type_Impl* impl)
{
  static const Framework_Modules framework = find_framework_modules();

  if (!impl || !dynamic_cast<const ACE_Service_Object_Type*>(impl) || !impl->object())
    return "";
  const std::uintptr_t table = *static_cast<const std::uintptr_t*>(impl->object());
  const char* const module = framework.hold(table) ? nullptr : find_place(table).module;
  return module ? module : "";
}

bool list_services(std::vector<Service>& services)
{
  ACE_Service_Repository& repository = *ACE_Service_Repository::instance();
  if (!lock(repository))
    return false;

  std::vector<Service> found;
  const ACE_Service_Type* service = nullptr;
  for (ACE_Service_Repository_Iterator i(repository, false); i.next(service) != 0; (void)i.advance()) {
    const ACE_Service_Type_Impl* const impl = service->type();
    found.push_back({service->name(), name_of_type(impl), service->active() != 0, library_of(impl),
                     impl ? impl->object() : nullptr});
  }
  (void)repository.lock().release();
  services = std::move(found);
  return true;
}
