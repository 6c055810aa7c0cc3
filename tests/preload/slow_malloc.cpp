// An allocator that takes its time: memory of one size comes only when slow_malloc_is_over is set.

#include <atomic>
#include <cstddef>

#include <dlfcn.h>
#include <time.h>

constexpr std::size_t SLOW_SIZE = 54321; // as in the service hanger

extern "C" void* __libc_malloc(std::size_t size);
extern "C" std::atomic<bool> slow_malloc_is_over;
std::atomic<bool> slow_malloc_is_over;

extern "C" void* malloc(std::size_t size)
{
  const timespec moment = {0, 20000000};
  while (size == SLOW_SIZE && !slow_malloc_is_over)
    (void)nanosleep(&moment, nullptr);
  return __libc_malloc(size);
}
