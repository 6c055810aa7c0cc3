#ifndef COMPANIONS_COMMON_SERVICE_LIST_H
#define COMPANIONS_COMMON_SERVICE_LIST_H

#include <cstddef>
#include <vector>

/// A service from a library. Longer names are cut.
struct Service_Entry
{
  char name[128];
  char library[256]; ///< as the directive names it
  bool is_active;    ///< not suspended
};

/// The services of the process that come from libraries, as they were when somebody could look. One thread uses it.
class Service_List
{
public:
  /// Look again. While another thread loads or finalises services, or there are services that are being initialised,
  /// the list stays as it is, and the result is false. Never waits for that thread; takes no memory while it has the
  /// lock of the framework's repository. Throws std::bad_alloc.
  bool update();

  /// The services that the last successful update() has found, in the order in which they were loaded.
  const std::vector<Service_Entry>& entries() const { return entries_; }

private:
  bool copy_entries(std::size_t& wanted);

  std::vector<Service_Entry> entries_;
  std::vector<Service_Entry> room_; // for the next look
};

#endif // COMPANIONS_COMMON_SERVICE_LIST_H
