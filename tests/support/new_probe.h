#ifndef TESTS_SUPPORT_NEW_PROBE_H
#define TESTS_SUPPORT_NEW_PROBE_H

#include <cstddef>

/// A call of the non-throwing form of new.
struct Allocation
{
  std::size_t size;
  void* p;      ///< null when the allocation failed
  bool deleted; ///< whether the memory has been deleted since
};

/// As long as the object lives, it records the non-throwing allocations of a program that links new_probe. There may be
/// one object at a time, and no other thread that allocates.
class New_Recorder
{
public:
  New_Recorder();

  /// Let the `nth` allocation of `size` bytes fail, counted from 1.
  New_Recorder(std::size_t size, unsigned nth);

  ~New_Recorder();

  New_Recorder(const New_Recorder&) = delete;
  New_Recorder& operator=(const New_Recorder&) = delete;

  /// Whether the allocation that was to fail has been made.
  bool has_failed() const;

  /// How often `size` bytes were asked for.
  unsigned count(std::size_t size) const;

  /// The first allocation of `size` bytes, and the latest at `p`. Throw std::logic_error when there is none.
  const Allocation& first(std::size_t size) const;
  const Allocation& at(const void* p) const;
};

#endif // TESTS_SUPPORT_NEW_PROBE_H
