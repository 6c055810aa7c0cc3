#ifndef TESTS_SUPPORT_LIBC_PROBE_H
#define TESTS_SUPPORT_LIBC_PROBE_H

#include <cstddef>
#include <vector>

/// The calls of this thread to the C library while it was watched. In a test program that links libc_probe, its malloc,
/// calloc, realloc and vsnprintf replace those of the C library and pass every call on to them.
struct Libc_Calls
{
  std::vector<std::size_t> rooms; ///< the size given to each formatting, in order
  unsigned allocations;           ///< the number of allocations by any function
};

void watch_libc();
Libc_Calls unwatch_libc();

/// Run `action` and return its calls to the C library.
template <typename Action>
Libc_Calls libc_calls_of(Action action)
{
  watch_libc();
  action();
  return unwatch_libc();
}

/// As long as the object lives, realloc in this thread fails as if no memory were left.
class Failing_Realloc
{
public:
  Failing_Realloc();
  ~Failing_Realloc();

  Failing_Realloc(const Failing_Realloc&) = delete;
  Failing_Realloc& operator=(const Failing_Realloc&) = delete;
};

/// As long as the object lives, vsnprintf in this thread fails with -2 and errno EOVERFLOW. The value is not -1,
/// because every negative value is an error.
class Failing_Format
{
public:
  Failing_Format();
  ~Failing_Format();

  Failing_Format(const Failing_Format&) = delete;
  Failing_Format& operator=(const Failing_Format&) = delete;
};

#endif // TESTS_SUPPORT_LIBC_PROBE_H
