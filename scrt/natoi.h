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

/// Returns the value of the decimal digit `c`, judged by its byte alone, or more than 9 if `c` is no digit.
template <typename C>
constexpr unsigned digit_value(C c)
{
  return static_cast<unsigned>(c) - '0';
}

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
inline T natoi(U beg, U end, U* eptr)
{
  using int_type = typename std::make_signed<T>::type;
  using uint_type = typename std::make_unsigned<T>::type;
  using max_type = typename std::conditional<(sizeof(T) > sizeof(unsigned)), unsigned long long, unsigned>::type;

  constexpr unsigned NO_DIGIT = 10;

  if (eptr)
    *eptr = beg;

  int_type flag = 1;
  U first = beg;
  unsigned v = beg ? digit_value(*beg) : NO_DIGIT;
  if (v > 9) { // no digit comes first: the rare text, which alone is worth a look at the precondition and the sign
    if (!beg || !natoi_traits<U>::pre_cond(beg) || (std::is_unsigned<T>::value && *beg == '-')) {
      ACE_OS::last_error(EINVAL);
      return 0;
    }
    if (*beg == '-')
      flag = -1;
    if (*beg == '-' || *beg == '+')
      ++first;
    v = first == end ? NO_DIGIT : digit_value(*first);
  }
  if (v > 9 || first == end) {
    if (eptr)
      *eptr = first;
    ACE_OS::last_error(EINVAL);
    return 0;
  }

  // So many digits cannot overflow, so that they need no comparison with the limit.
  int safe_digits = std::numeric_limits<T>::digits10 - 1;
  uint_type result = static_cast<uint_type>(v);
  bool is_at_end = false; // `safe_digits` tells too, but costs a comparison more for every short text
  U p = first + 1;
  for (; safe_digits != 0 && p != end; --safe_digits, ++p) {
    v = digit_value(*p);
    if (v > 9) {
      is_at_end = true;
      break;
    }
    result = static_cast<uint_type>(result * 10 + v);
  }

  if (!is_at_end) {
    // The limit is one more after a minus sign: it is the magnitude of the most negative value.
    const max_type type_max = static_cast<max_type>(std::numeric_limits<T>::max()) + (flag < 0 ? 1 : 0);
    const max_type q = type_max / 10;
    const max_type r = type_max % 10;
    for (; p != end; ++p) {
      v = digit_value(*p);
      if (v > 9)
        break;
      if (result > q || (result == q && v > r)) {
        if (eptr)
          *eptr = p;
        ACE_OS::last_error(ERANGE);
        // Negative overflow gives the largest value too: callers recognise overflow by errno, never by the sign.
        return std::numeric_limits<T>::max();
      }
      result = static_cast<uint_type>(result * 10 + v);
    }
  }

  if (eptr)
    *eptr = p;
  ACE_OS::last_error(0);
  // The magnitude of the most negative value wraps to that value.
  return static_cast<T>(flag < 0 ? static_cast<uint_type>(0 - result) : result);
}

#endif // SCRT_NATOI_H
