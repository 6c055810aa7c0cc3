// This library sends the calling thread a fault signal when it makes the second thread of the process.

#include <atomic>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*run)(void*), void* arg) noexcept
{
  using pthread_create_t = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const pthread_create_t next = reinterpret_cast<pthread_create_t>(::dlsym(RTLD_NEXT, "pthread_create"));
  static std::atomic<int> made;

  if (made++ == 1)
    ::raise(SIGSEGV);
  return next(thread, attr, run, arg);
}
