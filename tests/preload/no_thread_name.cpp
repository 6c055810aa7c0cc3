// This library hides the function that tells the name of a thread, as an older C library lacks it.

#include <cstring>

#include <dlfcn.h>

extern "C" void* dlsym(void* handle, const char* name) noexcept
{
  using dlsym_t = void* (*)(void*, const char*);
  static const dlsym_t next = reinterpret_cast<dlsym_t>(::dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.2.5"));

  return std::strcmp(name, "pthread_getname_np") == 0 ? nullptr : next(handle, name);
}
