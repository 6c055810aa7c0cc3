#ifndef SCRT_SNPRINTF_T_H
#define SCRT_SNPRINTF_T_H

/// @file
/// snprintf_t holds formatted text in a buffer that grows when it has to.

#include "scrt/inline_util.h"

#include <ace/OS_NS_stdlib.h>

#include <cstdarg>
#include <cstddef>

/// A text that is formatted as by printf. It is kept in place while it fits into `N` characters (the terminating NUL
/// included), and on the heap once a text did not fit. `T` is the character type, char. The object owns its text. One
/// object is not to be used from two threads at once. Logs nothing.
template <unsigned N, typename T>
class snprintf_t
{
public:
  /// Make an empty text.
  snprintf_t() : len_(0), ptr_(nullptr), size_(0) { buf_[0] = T(); }

  /// Make the formatted text; `length()` tells how the formatting went.
  explicit snprintf_t(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

  ~snprintf_t() { ACE_OS::free(ptr_); }

  snprintf_t(const snprintf_t&) = delete;
  snprintf_t& operator=(const snprintf_t&) = delete;

  /// Returns the text, valid until the next formatting or the end of the object. After a formatting error its content
  /// is undefined.
  const T* c_str() const { return ptr_ ? ptr_ : buf_; }

  /// Returns the same text, which the caller may change within its length.
  T* data() { return ptr_ ? ptr_ : buf_; }

  /// Returns the length of the text in characters; negative after a formatting error, 0 when memory ran out.
  int length() const { return len_; }

  /// Format anew. The arguments must not point into this object's own text. Returns the length of the text, or
  /// a negative value: with `errno` as the C library set it for a formatting error, with ENOMEM when the text does
  /// not fit and the buffer cannot grow; the part that fits is then kept.
  int set(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

  /// Do the same with the address of a `va_list` as `args`, which the caller may use again.
  int vset(const char* fmt, void* args);

protected:
  T buf_[N];      ///< the text as long as it has not outgrown this buffer
  int len_;       ///< what length() returns
  T* ptr_;        ///< the text once it has outgrown buf_, owned; else null
  unsigned size_; ///< room at ptr_ in characters, 0 while that is null
};

template <unsigned N, typename T>
snprintf_t<N, T>::snprintf_t(const char* fmt, ...) : snprintf_t()
{
  va_list args;
  va_start(args, fmt);
  (void)vset(fmt, &args); // length() keeps the result
  va_end(args);
}

template <unsigned N, typename T>
int snprintf_t<N, T>::set(const char* fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  const int rc = vset(fmt, &args);
  va_end(args);

  return rc;
}

template <unsigned N, typename T>
int snprintf_t<N, T>::vset(const char* fmt, void* args)
{
  unsigned size = ptr_ ? size_ : N;

  for (;;) {
    len_ = vformat(data(), size, fmt, args);
    if (len_ < 0 || static_cast<unsigned>(len_) < size)
      return len_;

    // A library that cannot tell the length returns one more than the room: the buffer then grows by a large step.
    unsigned length = static_cast<unsigned>(len_);
    if (length == size + 1)
      length *= 2;

    T* const t = static_cast<T*>(ACE_OS::realloc(ptr_, (static_cast<std::size_t>(length) + 1) * sizeof(T)));
    if (!t) {
      len_ = 0;
      return -1;
    }
    ptr_ = t;
    size = size_ = length + 1;
  }
}

#endif // SCRT_SNPRINTF_T_H
