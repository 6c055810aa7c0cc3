#ifndef SCRT_STRING_SPRINTF_H
#define SCRT_STRING_SPRINTF_H

/// @file
/// These functions format a text into a string.

#include "scrt/inline_util.h"

#include <cstdarg>
#include <cstddef>
#include <string>

/// Do what `string_vsprintf` does, with a list of the caller's own: `ap` is used up, and `args` is the address of a
/// copy of it.
template <typename T>
int string_vsprintf_once(std::basic_string<T>& s, const T* fmt, va_list ap, void* args, bool append)
{
  const std::size_t pos = append ? s.size() : 0;
  std::size_t size = s.size() - pos;
  if (size < 128) {
    size = 128;
    s.resize(pos + 128);
  }

  int len = vformat_once(&s[pos], size, fmt, ap, args);
  while (len >= 0 && static_cast<std::size_t>(len) >= size) {
    // A library that cannot tell the length returns one more than the room: the string then grows beyond that.
    std::size_t length = static_cast<std::size_t>(len);
    if (length == size + 1)
      length += 128;
    size = length + 1;
    s.resize(pos + size);
    len = vformat(&s[pos], size, fmt, args);
  }

  if (len >= 0) {
    s.resize(pos + static_cast<std::size_t>(len));
    return static_cast<int>(s.size());
  }
  if (pos == 0)
    std::basic_string<T>().swap(s);
  else
    s.resize(pos);
  return len;
}

/// Format into `s` as by printf, replacing its content or, with `append`, following it. `T` is the character type,
/// char. `args` is the address of a `va_list`, which the caller may use again; its texts must not belong to `s`.
/// Returns the length of the whole string, in append mode with what it held before. For a formatting error returns a
/// negative value with the C library's `errno`, and leaves `s` with its former content in append mode, else empty.
/// Throws what the string throws when memory runs out. Logs nothing. Any thread, one at a time for each string.
template <typename T>
int string_vsprintf(std::basic_string<T>& s, const T* fmt, void* args, bool append)
{
  va_list ap;
  va_copy(ap, *static_cast<va_list*>(args));
  const int rc = string_vsprintf_once(s, fmt, ap, args, append);
  va_end(ap);

  return rc;
}

/// Replace `s` by the formatted text. Returns its length or a negative value, as string_vsprintf does.
template <typename T>
int string_sprintf(std::basic_string<T>& s, const T* fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  const int rc = string_vsprintf_once(s, fmt, args, &copy, false);
  va_end(copy);
  va_end(args);

  return rc;
}

#endif // SCRT_STRING_SPRINTF_H
