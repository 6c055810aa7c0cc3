#ifndef TESTS_SUPPORT_LIBC_PROBE_H
#define TESTS_SUPPORT_LIBC_PROBE_H

#include <cstddef>
#include <vector>

/// What this thread asked of the C library while it was watched. Linked into a test program, libc_probe stands before
/// the C library's malloc, calloc, realloc and vsnprintf and hands every call on.
struct Libc_Calls
{
  std::vector<std::size_t> rooms; ///< the size given to each formatting, in order
  unsigned allocations;           ///< of memory, by whatever function
};

void watch_libc();
Libc_Calls unwatch_libc();

/// Run `action` and return what it asked of the C library.
template <typename Action>
Libc_Calls libc_calls_of(Action action)
{
  watch_libc();
  action();
  return unwatch_libc();
}

/// As long as it lives, realloc in this thread fails as if no memory were left.
class Failing_Realloc
{
public:
  Failing_Realloc();
  ~Failing_Realloc();

  Failing_Realloc(const Failing_Realloc&) = delete;
  Failing_Realloc& operator=(const Failing_Realloc&) = delete;
};

/// As long as it lives, vsnprintf in this thread fails with -2 and errno EOVERFLOW: any negative value is an error.
class Failing_Format
{
public:
  Failing_Format();
  ~Failing_Format();

  Failing_Format(const Failing_Format&) = delete;
  Failing_Format& operator=(const Failing_Format&) = delete;
};

#endif // TESTS_SUPPORT_LIBC_PROBE_H
