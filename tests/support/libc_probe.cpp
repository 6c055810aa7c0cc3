#include "tests/support/libc_probe.h"

#include <cerrno>
#include <cstdarg>

#include <dlfcn.h>

// No library function that allocates is used while a watch is on, so the sizes stand in an array.
static const std::size_t MAX_ROOMS = 16;
static thread_local bool watching = false;
static thread_local bool realloc_fails = false;
static thread_local unsigned allocations = 0;
static thread_local std::size_t formats = 0;
static thread_local std::size_t rooms[MAX_ROOMS];

// The definition that this one hides: the C library's, or a sanitizer's before it.
template <typename Function>
static Function* hidden_function(const char* name)
{
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
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

// The C library's headers may declare or even define these as inline functions, so ours have names of their own
// here and the library's in the object file.
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
  static const auto hidden = hidden_function<void*(std::size_t)>("malloc");
  count_allocation();
  return hidden(size);
}

void* probe_calloc(std::size_t count, std::size_t size)
{
  static const auto hidden = hidden_function<void*(std::size_t, std::size_t)>("calloc");
  count_allocation();
  return hidden(count, size);
}

void* probe_realloc(void* p, std::size_t size)
{
  static const auto hidden = hidden_function<void*(void*, std::size_t)>("realloc");
  count_allocation();
  if (realloc_fails) {
    errno = ENOMEM;
    return nullptr;
  }
  return hidden(p, size);
}

int probe_vsnprintf(char* buf, std::size_t size, const char* fmt, va_list ap)
{
  static const auto hidden = hidden_function<int(char*, std::size_t, const char*, va_list)>("vsnprintf");
  count_format(size);
  return hidden(buf, size, fmt, ap);
}

// What calls to vsnprintf are compiled to when they are fortified.
int probe_vsnprintf_chk(char* buf, std::size_t size, int flag, std::size_t object_size, const char* fmt, va_list ap)
{
  using Signature = int(char*, std::size_t, int, std::size_t, const char*, va_list);
  static const auto hidden = hidden_function<Signature>("__vsnprintf_chk");
  count_format(size);
  return hidden(buf, size, flag, object_size, fmt, ap);
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
