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

  ~snprintf_t()
  {
    if (ptr_)
      ACE_OS::free(ptr_);
  }

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

private:
  /// Do the work of vset() with a list `ap` that is used up, and the address of a copy of it as `args`.
  int vset_once(const char* fmt, va_list ap, void* args);

  /// Go on with the work of vset() when the text has turned out to need more room than `size`. `len_` holds its length.
  [[gnu::cold, gnu::noinline]] int vset_growing(unsigned size, const char* fmt, void* args);
};

template <unsigned N, typename T>
snprintf_t<N, T>::snprintf_t(const char* fmt, ...) : snprintf_t()
{
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  (void)vset_once(fmt, args, &copy); // length() keeps the result
  va_end(copy);
  va_end(args);
}

template <unsigned N, typename T>
int snprintf_t<N, T>::set(const char* fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  const int rc = vset_once(fmt, args, &copy);
  va_end(copy);
  va_end(args);

  return rc;
}

template <unsigned N, typename T>
int snprintf_t<N, T>::vset(const char* fmt, void* args)
{
  va_list ap;
  va_copy(ap, *static_cast<va_list*>(args));
  const int rc = vset_once(fmt, ap, args);
  va_end(ap);

  return rc;
}

template <unsigned N, typename T>
int snprintf_t<N, T>::vset_once(const char* fmt, va_list ap, void* args)
{
  const unsigned size = ptr_ ? size_ : N;
  len_ = vformat_once(data(), size, fmt, ap, args);
  return len_ < 0 || static_cast<unsigned>(len_) < size ? len_ : vset_growing(size, fmt, args);
}

template <unsigned N, typename T>
int snprintf_t<N, T>::vset_growing(unsigned size, const char* fmt, void* args)
{
  do {
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
    len_ = vformat(t, size, fmt, args);
  } while (len_ >= 0 && static_cast<unsigned>(len_) >= size);

  return len_;
}

#endif // SCRT_SNPRINTF_T_H
