#ifndef SCRT_NATOI_H
#define SCRT_NATOI_H

/// @file
/// natoi converts decimal text to integers strictly.

#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <limits>
#include <type_traits>

/// The properties of its iterator type that `natoi` needs. Only pointers are supported.
template <typename U, bool = std::is_pointer<U>::value>
struct natoi_traits;

/// The specialisation for pointers to characters of a zero-terminated text.
template <typename U>
struct natoi_traits<U, true>
{
  /// Returns whether there is any text at `p`.
  static bool pre_cond(U p) { return p && *p; }
};

/// Convert the decimal text at `beg` to the integer type `T`, strictly: an optional sign ('-' for a signed `T` only),
/// then digits. White space is not skipped, there are no other bases and no locale. Text after the digits is no error.
///
/// `beg` is the start of the text, which is zero-terminated unless `end` says where to stop; a null `end` says nothing.
/// The sign is taken without a look at `end`, so an `end` equal to `beg` does not stop a signed text.
/// `eptr`, unless null, receives the position where the scan stopped.
///
/// `errno` is always set, so that callers can test it alone:
///   0       the value is returned, `*eptr` at the first character that is no digit, or at `end`
///   EINVAL  0 is returned: null or empty text, a minus sign for an unsigned `T` (`*eptr` at `beg` for these), or no
///           digit (`*eptr` after the sign, if there is one)
///   ERANGE  the largest `T` is returned, for too large a negative magnitude too; `*eptr` at the digit too many
///
/// Makes one pass, allocates nothing, logs nothing. Any thread.
template <typename T, typename U>
T natoi(U beg, U end, U* eptr)
{
  using int_type = typename std::make_signed<T>::type;
  using uint_type = typename std::make_unsigned<T>::type;
  using max_type = typename std::conditional<(sizeof(T) > sizeof(unsigned)), unsigned long long, unsigned>::type;

  if (eptr)
    *eptr = beg;
  if (!natoi_traits<U>::pre_cond(beg)) {
    ACE_OS::last_error(EINVAL);
    return 0;
  }

  int_type flag = 1;
  U first = beg;
  if (*first == '-') {
    if (std::is_unsigned<T>::value) {
      ACE_OS::last_error(EINVAL);
      return 0;
    }
    flag = -1;
    ++first;
  } else if (*first == '+')
    ++first;

  // The limit is one more after a minus sign: it is the magnitude of the most negative value.
  const max_type type_max = static_cast<max_type>(std::numeric_limits<T>::max()) + (flag < 0 ? 1 : 0);
  const max_type q = type_max / 10;
  const max_type r = type_max % 10;

  uint_type result = 0;
  int e = 0;
  U p = first;
  for (; p != end && *p >= '0' && *p <= '9'; ++p) {
    const max_type v = static_cast<max_type>(*p - '0');
    if (result > q || (result == q && v > r)) {
      e = ERANGE;
      break;
    }
    result = static_cast<uint_type>(result * 10 + v);
  }

  if (eptr)
    *eptr = p;
  if (e == 0 && p == first)
    e = EINVAL;
  ACE_OS::last_error(e);

  // Negative overflow gives the largest value too: callers recognise overflow by errno, never by the sign.
  if (e == ERANGE)
    return std::numeric_limits<T>::max();
  // For the magnitude of the most negative value the product wraps to that value; without digits it is 0.
  return static_cast<T>(static_cast<uint_type>(static_cast<uint_type>(flag) * result));
}

#endif // SCRT_NATOI_H
