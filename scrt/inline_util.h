#ifndef SCRT_INLINE_UTIL_H
#define SCRT_INLINE_UTIL_H

/// @file
/// This header holds small inline helpers.

#include <ace/OS_NS_stdio.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>

/// Format into `buf`, which has room for `size` characters with the terminating NUL. `args` is the address of a
/// `va_list`; it is copied, so the caller may format with it again. Returns the length of the whole text, which is
/// `size` or more when it was cut, or a negative value with `errno` when the C library cannot format it at all
/// (EILSEQ, EOVERFLOW, ENOMEM). Without such an error `errno` is left as it was. Logs nothing. Any thread.
inline int vformat(char* buf, std::size_t size, const char* fmt, void* args)
{
  // An errno of 0 lets an error show, but the format may ask for the caller's errno with %m.
  const int saved = errno;
  const int old_errno = std::strchr(fmt, 'm') ? saved : 0;
  const auto format = [fmt, args, old_errno](char* to, std::size_t room) {
    // Only this line knows how a va_list travels through an untyped pointer: a va_list is an array on some platforms
    // and a structure on others, and its address is the same kind of pointer on all of them.
    va_list ap;
    va_copy(ap, *static_cast<va_list*>(args));
    errno = old_errno;
    const int len = ACE_OS::vsnprintf(to, room, fmt, ap);
    va_end(ap);
    return len;
  };

  const int len = format(buf, size);

  // The framework disguises an error as a text that is one longer than the room. An errno of 0 rules an error out; if
  // it is not 0, formatting once more without any room tells: a disguise then has the length 1, a real length stays.
  if (len >= 0 && static_cast<std::size_t>(len) == size + 1 && errno != 0 && format(nullptr, 0) != len)
    return -1;

  if (len >= 0)
    errno = saved;
  return len;
}

#endif // SCRT_INLINE_UTIL_H
