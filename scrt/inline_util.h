#ifndef SCRT_INLINE_UTIL_H
#define SCRT_INLINE_UTIL_H

/// @file
/// Small inline helpers.

#include <ace/OS_NS_stdio.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>

/// Format into `buf`, which has room for `size` characters with the terminating NUL. `args` is the address of a
/// `va_list`; it is copied, so the caller may format with it again. Returns the length of the whole text, which is
/// `size` or more when it was cut, or a negative value with `errno` when the C library cannot format it at all
/// (EILSEQ, EOVERFLOW, ENOMEM). Without such an error `errno` is left as it was. Logs nothing. Any thread.
inline int vformat(char* buf, std::size_t size, const char* fmt, void* args)
{
  // The one place that knows how a va_list travels through an untyped pointer: it is an array on some platforms and
  // a structure on others, and its address is the same kind of thing on all of them.
  va_list ap;
  va_copy(ap, *static_cast<va_list*>(args));

  const int saved = errno;
  errno = 0;
  const int len = ACE_OS::vsnprintf(buf, size, fmt, ap);
  const int error = errno;
  va_end(ap);

  // The framework disguises an error as a text of this very length; only errno tells it from a genuine one.
  if (len == static_cast<int>(size) + 1 && error != 0)
    return -1;

  errno = len < 0 ? error : saved;
  return len;
}

#endif // SCRT_INLINE_UTIL_H
