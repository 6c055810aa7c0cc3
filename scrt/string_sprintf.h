#ifndef SCRT_STRING_SPRINTF_H
#define SCRT_STRING_SPRINTF_H

/// @file
/// These functions format a text into a string.

#include "scrt/inline_util.h"

#include <cstdarg>
#include <cstddef>
#include <string>

/// Format into `s` as by printf, replacing its content or, with `append`, following it. `T` is the character type,
/// char. `args` is the address of a `va_list`, which the caller may use again; its texts must not belong to `s`.
/// Returns the length of the whole string, in append mode with what it held before. For a formatting error returns a
/// negative value with the C library's `errno`, and leaves `s` with its former content in append mode, else empty.
/// Throws what the string throws when memory runs out. Logs nothing. Any thread, one at a time for each string.
template <typename T>
int string_vsprintf(std::basic_string<T>& s, const T* fmt, void* args, bool append)
{
  const std::size_t pos = append ? s.size() : 0;
  std::size_t size = s.size() - pos;
  if (size < 128) {
    size = 128;
    s.resize(pos + 128);
  }

  for (;;) {
    const int len = vformat(&s[pos], size, fmt, args);
    if (len < 0) {
      if (pos == 0)
        std::basic_string<T>().swap(s);
      else
        s.resize(pos);
      return len;
    }

    std::size_t length = static_cast<std::size_t>(len);
    if (length < size) {
      s.resize(pos + length);
      return static_cast<int>(s.size());
    }

    // A library that cannot tell the length returns one more than the room: the string then grows beyond that.
    if (length == size + 1)
      length += 128;
    size = length + 1;
    s.resize(pos + size);
  }
}

/// Replace `s` by the formatted text. Returns its length or a negative value, as string_vsprintf does.
template <typename T>
int string_sprintf(std::basic_string<T>& s, const T* fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  const int rc = string_vsprintf(s, fmt, &args, false);
  va_end(args);

  return rc;
}

#endif // SCRT_STRING_SPRINTF_H
