#include "tests/support/libc_probe.h"

#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>

// No library function that allocates is used while a watch is on, so the sizes stand in an array.
static const std::size_t MAX_ROOMS = 16;
static thread_local bool watching = false;
static thread_local bool realloc_fails = false;
static thread_local bool format_fails = false;
static thread_local unsigned allocations = 0;
static thread_local std::size_t formats = 0;
static thread_local std::size_t rooms[MAX_ROOMS];

// Points `hidden` to the definition that ours hides, which belongs to the C library or to a sanitizer. The callers'
// pointers have no initialiser that runs, because its guard would call a sanitizer that is not ready yet. Two threads
// may store the same value at once.
template <typename Function>
static void find_hidden(Function*& hidden, const char* name)
{
  if (!hidden)
    hidden = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

static void count_allocation()
{
  if (watching)
    ++allocations;
}

static void count_format(std::size_t room)
{
  if (watching && formats < MAX_ROOMS)
    rooms[formats++] = room;
}

static int fail_format()
{
  errno = EOVERFLOW;
  return -2;
}

// The headers of the C library may define these functions as inline functions. Therefore ours have other names here,
// and the names of the library only in the object file.
extern "C"
{
void* probe_malloc(std::size_t size) __asm__("malloc");
void* probe_calloc(std::size_t count, std::size_t size) __asm__("calloc");
void* probe_realloc(void* p, std::size_t size) __asm__("realloc");
int probe_vsnprintf(char* buf, std::size_t size, const char* fmt, va_list ap) __asm__("vsnprintf");
int probe_vsnprintf_chk(char* buf, std::size_t size, int flag, std::size_t object_size, const char* fmt,
                        va_list ap) __asm__("__vsnprintf_chk");
}

void* probe_malloc(std::size_t size)
{
  static void* (*hidden)(std::size_t) = nullptr;
  find_hidden(hidden, "malloc");
  count_allocation();
  return hidden(size);
}

void* probe_calloc(std::size_t count, std::size_t size)
{
  static void* (*hidden)(std::size_t, std::size_t) = nullptr;
  find_hidden(hidden, "calloc");
  count_allocation();
  return hidden(count, size);
}

void* probe_realloc(void* p, std::size_t size)
{
  static void* (*hidden)(void*, std::size_t) = nullptr;
  find_hidden(hidden, "realloc");
  count_allocation();
  if (realloc_fails) {
    errno = ENOMEM;
    return nullptr;
  }
  return hidden(p, size);
}

int probe_vsnprintf(char* buf, std::size_t size, const char* fmt, va_list ap)
{
  static int (*hidden)(char*, std::size_t, const char*, va_list) = nullptr;
  find_hidden(hidden, "vsnprintf");
  count_format(size);
  return format_fails ? fail_format() : hidden(buf, size, fmt, ap);
}

// Fortified calls to vsnprintf are compiled to calls to this function.
int probe_vsnprintf_chk(char* buf, std::size_t size, int flag, std::size_t object_size, const char* fmt, va_list ap)
{
  static int (*hidden)(char*, std::size_t, int, std::size_t, const char*, va_list) = nullptr;
  find_hidden(hidden, "__vsnprintf_chk");
  count_format(size);
  return format_fails ? fail_format() : hidden(buf, size, flag, object_size, fmt, ap);
}

void watch_libc()
{
  allocations = 0;
  formats = 0;
  watching = true;
}

Libc_Calls unwatch_libc()
{
  watching = false;
  return {std::vector<std::size_t>(rooms, rooms + formats), allocations};
}

Failing_Realloc::Failing_Realloc()
{
  realloc_fails = true;
}

Failing_Realloc::~Failing_Realloc()
{
  realloc_fails = false;
}

Failing_Format::Failing_Format()
{
  format_fails = true;
}

Failing_Format::~Failing_Format()
{
  format_fails = false;
}
