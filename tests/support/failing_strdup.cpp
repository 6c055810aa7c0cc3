#include "tests/support/failing_strdup.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include <dlfcn.h>

static int failure = 0; // none
static unsigned successes_left = 0;

static bool fails()
{
  if (failure == 0)
    return false;
  if (successes_left > 0) {
    --successes_left;
    return false;
  }

  errno = failure;
  return true;
}

extern "C"
{
char* own_strdup(const char* text) __asm__("strdup");
void* own_ace_malloc(std::size_t size) __asm__("_ZN6ACE_OS6mallocEm"); // ACE_OS::malloc, which copies wide texts

char* own_strdup(const char* text)
{
  static const auto next = reinterpret_cast<char* (*)(const char*)>(dlsym(RTLD_NEXT, "strdup"));
  return fails() ? nullptr : next(text);
}

void* own_ace_malloc(std::size_t size)
{
  return fails() ? nullptr : std::malloc(size);
}
}

Failing_Strdup::Failing_Strdup(int error, unsigned successes)
{
  successes_left = successes;
  failure = error;
}

Failing_Strdup::~Failing_Strdup()
{
  failure = 0;
}
