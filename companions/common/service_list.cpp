#include "companions/common/service_list.h"

#include <ace/DLL.h>
#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>

#include <cstring>

enum { USUAL_COUNT = 64 };

template <std::size_t N>
static void copy_text(char (&room)[N], const char* text)
{
  std::strncpy(room, text ? text : "", N - 1);
  room[N - 1] = '\0';
}

// False if the list cannot be had now. `wanted` gets the number of services, of which as many as there is room for are
// copied.
bool Service_List::copy_entries(std::size_t& wanted)
{
  ACE_Service_Repository& repository = *ACE_Service_Repository::instance();
  if (repository.lock().tryacquire() != 0)
    return false;

  // A service without a type is one whose init is running, and one without a library is the framework's own.
  bool is_settled = true;
  const ACE_Service_Type* service = nullptr;
  wanted = 0;
  for (ACE_Service_Repository_Iterator i(repository, false); i.next(service) != 0; (void)i.advance())
    if (!service->type())
      is_settled = false;
    else if (service->dll().dll_handle_ && wanted++ < room_.size()) {
      Service_Entry& entry = room_[wanted - 1];
      copy_text(entry.name, service->name());
      copy_text(entry.library, service->dll().dll_name_);
      entry.is_active = service->active() != 0;
    }

  (void)repository.lock().release();
  return is_settled;
}

bool Service_List::update()
{
  std::size_t wanted = USUAL_COUNT;
  do {
    room_.resize(wanted);
    if (!copy_entries(wanted))
      return false;
  } while (wanted > room_.size());

  room_.resize(wanted);
  entries_.swap(room_);
  return true;
}
