#ifndef SCRT_INLINE_UTIL_H
#define SCRT_INLINE_UTIL_H

/// @file
/// This header holds small inline helpers.

#include <ace/OS_NS_stdio.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>

// Only these functions know how a va_list travels through an untyped pointer: a va_list is an array on some platforms
// and a structure on others, and its address is the same kind of pointer on all of them.

/// Returns what `vformat` does, once the framework has reported `len`: a text that does not fit into `size`, or an
/// error. `old_errno` is the errno from before, which `errno` still is when nothing went wrong.
[[gnu::cold, gnu::noinline]] inline int judge_unfit(int len, std::size_t size, const char* fmt, void* args,
                                                    int old_errno)
{
  if (len < 0)
    return len;

  // One more than the room is a length, or an error in disguise: the framework reports it so. The errno of an error is
  // one of these, if it is the one from before.
  const bool is_of_formatting =
      old_errno == EILSEQ || old_errno == EINVAL || old_errno == ENOMEM || old_errno == EOVERFLOW;
  if (static_cast<std::size_t>(len) == size + 1 && (errno != old_errno || is_of_formatting)) {
    // Formatting once more without any room tells: a disguise then has the length 1, a real length stays.
    va_list ap;
    va_copy(ap, *static_cast<va_list*>(args));
    errno = old_errno; // the format may ask for it with %m
    const bool is_error = ACE_OS::vsnprintf(nullptr, 0, fmt, ap) != len;
    va_end(ap);
    if (is_error)
      return -1;
  }

  errno = old_errno;
  return len;
}

/// Do what `vformat` does, with a list of the caller's own: `ap` is used up, and `args` is the address of a copy of it.
inline int vformat_once(char* buf, std::size_t size, const char* fmt, va_list ap, void* args)
{
  const int old_errno = errno;
  const int len = ACE_OS::vsnprintf(buf, size, fmt, ap);
  if (len < 0 || static_cast<std::size_t>(len) >= size)
    return judge_unfit(len, size, fmt, args, old_errno);

  errno = old_errno;
  return len;
}

/// Format into `buf`, which has room for `size` characters with the terminating NUL. `args` is the address of a
/// `va_list`; it is copied, so the caller may format with it again. Returns the length of the whole text, which is
/// `size` or more when it was cut, or a negative value with `errno` when the C library cannot format it at all
/// (EILSEQ, EINVAL, EOVERFLOW, ENOMEM). Without such an error `errno` is left as it was. Logs nothing. Any thread.
inline int vformat(char* buf, std::size_t size, const char* fmt, void* args)
{
  va_list ap;
  va_copy(ap, *static_cast<va_list*>(args));
  const int len = vformat_once(buf, size, fmt, ap, args);
  va_end(ap);
  return len;
}

#endif // SCRT_INLINE_UTIL_H
