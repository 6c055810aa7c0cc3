#include "starter/thread_name.h"

#include <ace/OS_NS_Thread.h>

#include <cstddef>
#include <cstring>

#include <dlfcn.h>
#include <pthread.h>

using pthread_getname_np_t = int (*)(pthread_t, char*, std::size_t);

static pthread_getname_np_t pthread_getname;

void look_up_thread_names()
{
  // Through the framework's own wrapper the default scope is an invalid handle.
  pthread_getname = reinterpret_cast<pthread_getname_np_t>(::dlsym(RTLD_DEFAULT, "pthread_getname_np"));
}

void get_thread_name(char (&thread_name)[THREAD_NAME_SIZE])
{
  std::strncpy(thread_name, "unknown", sizeof thread_name); // fills the rest with zeros

  if (pthread_getname)
    (void)pthread_getname(ACE_OS::thr_self(), thread_name, sizeof thread_name); // failing, it leaves "unknown"
}
