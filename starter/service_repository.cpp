#include "starter/service_repository.h"

#include <ace/Guard_T.h>
#include <ace/Service_Repository.h>

#include <cstddef>

class Service_Places : private ACE_Service_Repository
{
public:
  static array_type& get(ACE_Service_Repository& repository) { return repository.*(&Service_Places::service_array_); }
};

void pack_service_repository()
{
  ACE_Service_Repository& repository = *ACE_Service_Repository::instance();
  const ACE_Guard<ACE_SYNCH_RECURSIVE_MUTEX> guard(repository.lock());
  auto& places = Service_Places::get(repository);

  // The key of a place is its index, so the services move and the keys stay.
  auto end = places.begin();
  for (auto& place : places)
    if (place.second)
      (end++)->second = place.second;

  for (std::ptrdiff_t gaps = places.end() - end; gaps > 0; --gaps)
    places.erase(places.end() - 1);
}
