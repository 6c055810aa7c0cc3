// This library sends the signal that SIGNAL_IN_FORMAT names while the framework makes the record about the system: as
// soon as the framework has formatted the first argument, which is the name of the system.

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <signal.h>

using vsnprintf_chk_t = int (*)(char*, std::size_t, int, std::size_t, const char*, va_list);

// The function has another name here, because the headers of the C library may define its real name as inline.
extern "C" int format_with_signal(char* buf, std::size_t size, int flag, std::size_t object_size, const char* format,
                                  va_list args) __asm__("__vsnprintf_chk");

int format_with_signal(char* buf, std::size_t size, int flag, std::size_t object_size, const char* format, va_list args)
{
  static const auto next = reinterpret_cast<vsnprintf_chk_t>(::dlsym(RTLD_NEXT, "__vsnprintf_chk"));
  static std::atomic<bool> sent;

  const int result = next(buf, size, flag, object_size, format, args);
  const char* const signo = std::getenv("SIGNAL_IN_FORMAT");
  if (signo && std::strcmp(buf, "Linux") == 0 && !sent.exchange(true))
    ::raise(std::atoi(signo));
  return result;
}
