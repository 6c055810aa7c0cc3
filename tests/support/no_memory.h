#ifndef TESTS_SUPPORT_NO_MEMORY_H
#define TESTS_SUPPORT_NO_MEMORY_H

#include <cstddef>
#include <cstdlib>

#include <sys/resource.h>

/// Take all memory that the process could still get. Every later allocation fails.
inline void take_all_memory()
{
  const rlimit none = {0, 0};
  (void)::setrlimit(RLIMIT_AS, &none); // cannot fail with these arguments

  for (std::size_t size = std::size_t(1) << 30; size >= sizeof(void*); size /= 2)
    for (void* volatile taken = std::malloc(size); taken;)
      taken = std::malloc(size);
}

#endif // TESTS_SUPPORT_NO_MEMORY_H
