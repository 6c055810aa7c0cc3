// This library is preloaded into a process under test. It makes calls fail that never fail on a healthy machine. An
// environment variable chooses each failure. Only the program under test is affected, not the tools that start it.
//
//   FAULT_NEW=SIZE        the program itself gets no object of that size from a non-throwing allocation
//   FAULT_NEW_ARRAY=N     its N-th non-throwing allocation of an array fails
//   FAULT_STRDUP=1        no text of the command line can be copied for the configurator
//   FAULT_FORK=1          fork fails
//   FAULT_THREADS=1       no thread can be made
//   COUNT_THREADS=FILE    every new thread appends a byte to that file
//   FAULT_GETGROUPS=1     getgroups fails with EIO
//   FAULT_GETPW_SIZE=N    sysconf returns N for the buffer of an account lookup,
//   FAULT_GETGR_SIZE=N    for the buffer of a group lookup,
//   FAULT_NGROUPS=N       and for the number of supplementary groups
//   FAULT_PHYS_PAGES=N    sysconf returns N to the program itself for the pages of memory
//   FAULT_UNAME=1         uname fails with EFAULT
//   FAULT_TIMER=CALL      timer_create or timer_settime fails with EAGAIN
//   FAULT_EVENTFD=1       eventfd fails with EMFILE

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/eventfd.h>
#include <sys/utsname.h>
#include <unistd.h>

static const char* setting(const char* name)
{
  return std::strcmp(program_invocation_short_name, "starter") == 0 ? std::getenv(name) : nullptr;
}

template <typename Function>
static Function next(const char* name)
{
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Whether `address` belongs to code of the executable, not of a library.
static bool is_in_program(const void* address)
{
  Dl_info caller;
  Dl_info program;

  return dladdr(address, &caller) != 0 && dladdr(reinterpret_cast<const void*>(getauxval(AT_PHDR)), &program) != 0 &&
         caller.dli_fbase == program.dli_fbase;
}

void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept
{
  const char* const chosen = setting("FAULT_NEW");
  if (chosen && is_in_program(__builtin_return_address(0)) && size == std::strtoul(chosen, nullptr, 10))
    return nullptr;

  return next<void* (*)(std::size_t, const std::nothrow_t&)>("_ZnwmRKSt9nothrow_t")(size, tag);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
  static int count;
  const char* const chosen = setting("FAULT_NEW_ARRAY");
  if (chosen && is_in_program(__builtin_return_address(0)) && ++count == std::atoi(chosen))
    return nullptr;

  return next<void* (*)(std::size_t, const std::nothrow_t&)>("_ZnamRKSt9nothrow_t")(size, tag);
}

// The framework copies the texts of a vector with it, and the program's own rooms do not use it.
extern "C" char* strdup(const char* text) noexcept
{
  if (setting("FAULT_STRDUP")) {
    errno = ENOMEM;
    return nullptr;
  }
  return next<char* (*)(const char*)>("strdup")(text);
}

extern "C" pid_t fork() noexcept
{
  if (setting("FAULT_FORK")) {
    errno = EAGAIN;
    return -1;
  }
  return next<pid_t (*)()>("fork")();
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*), void* arg) noexcept
{
  if (setting("FAULT_THREADS"))
    return EAGAIN;
  if (const char* const file = setting("COUNT_THREADS")) {
    const int fd = ::open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (::write(fd, "+", 1) != 1)
      std::abort();
    ::close(fd);
  }
  return next<decltype(&pthread_create)>("pthread_create")(thread, attr, start, arg);
}

extern "C" int getgroups(int size, gid_t* list) noexcept
{
  if (setting("FAULT_GETGROUPS")) {
    errno = EIO;
    return -1;
  }
  return next<decltype(&getgroups)>("getgroups")(size, list);
}

extern "C" long sysconf(int name) noexcept
{
  const char* size = nullptr;
  if (name == _SC_GETPW_R_SIZE_MAX)
    size = setting("FAULT_GETPW_SIZE");
  else if (name == _SC_GETGR_R_SIZE_MAX)
    size = setting("FAULT_GETGR_SIZE");
  else if (name == _SC_NGROUPS_MAX)
    size = setting("FAULT_NGROUPS");
  else if (name == _SC_PHYS_PAGES && is_in_program(__builtin_return_address(0)))
    size = setting("FAULT_PHYS_PAGES");

  return size ? std::atol(size) : next<decltype(&sysconf)>("sysconf")(name);
}

static bool fails_timer(const char* call)
{
  const char* const chosen = setting("FAULT_TIMER");
  if (!chosen || std::strcmp(chosen, call) != 0)
    return false;

  errno = EAGAIN;
  return true;
}

extern "C" int timer_create(clockid_t clock, struct sigevent* event, timer_t* timer) noexcept
{
  return fails_timer("timer_create") ? -1 : next<decltype(&timer_create)>("timer_create")(clock, event, timer);
}

extern "C" int timer_settime(timer_t timer, int flags, const itimerspec* value, itimerspec* old) noexcept
{
  return fails_timer("timer_settime") ? -1 : next<decltype(&timer_settime)>("timer_settime")(timer, flags, value, old);
}

extern "C" int eventfd(unsigned count, int flags) noexcept
{
  if (setting("FAULT_EVENTFD")) {
    errno = EMFILE;
    return -1;
  }
  return next<decltype(&eventfd)>("eventfd")(count, flags);
}

extern "C" int uname(struct utsname* uts) noexcept
{
  if (setting("FAULT_UNAME")) {
    errno = EFAULT;
    return -1;
  }
  return next<decltype(&uname)>("uname")(uts);
}
