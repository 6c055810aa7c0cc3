// This target holds natoi, for every integer type, against a sum of 128 bits. The input is the text. The first "|" in
// it marks the end position, and is taken out.

#include "scrt/natoi.h"
#include "tests/fuzz/oracle.h"

#include <cctype>
#include <cstring>
#include <memory>

namespace
{
struct Outcome
{
  __int128 value;
  int error;
  std::size_t stop;
};

// `size` is the length of the text, `end` the end position; npos is none.
template <typename T>
Outcome work_out(const char* text, std::size_t size, std::size_t end)
{
  const bool is_negative = size > 0 && text[0] == '-';
  if (size == 0 || text[0] == '\0' || (is_negative && std::is_unsigned<T>::value))
    return {0, EINVAL, 0};

  const std::size_t first = is_negative || text[0] == '+' ? 1 : 0;
  const __int128 largest = std::numeric_limits<T>::max();
  const __int128 limit = is_negative ? largest + 1 : largest;

  __int128 sum = 0;
  std::size_t at = first;
  for (; at != end && at < size && text[at] >= '0' && text[at] <= '9'; ++at) {
    const __int128 next = sum * 10 + (text[at] - '0');
    if (next > limit)
      return {largest, ERANGE, at};
    sum = next;
  }
  return {is_negative ? -sum : sum, at == first ? EINVAL : 0, at};
}

std::string describe(const Outcome& outcome)
{
  return std::to_string(static_cast<long long>(outcome.value >> 32)) + ':' +
         std::to_string(static_cast<unsigned>(outcome.value)) + ", errno " + std::to_string(outcome.error) +
         ", stopped at " + std::to_string(outcome.stop);
}

template <typename T, typename U>
void check_iterator(U text, std::size_t size, std::size_t end, const char* type)
{
  const std::string expected = describe(work_out<T>(text, size, end));
  U const bound = end == std::string::npos ? nullptr : text + end;

  U stop = nullptr;
  errno = EBADF;
  const T value = natoi<T, U>(text, bound, &stop);
  const int error = errno;
  expect_equal(type, expected, describe({value, error, static_cast<std::size_t>(stop - text)}));

  errno = EBADF;
  const T again = natoi<T, U>(text, bound, nullptr);
  expect(again == value && errno == error, std::string(type) + " gives the same without a place for the stop");
}

template <typename T>
void check(char* text, std::size_t size, std::size_t end, const char* type)
{
  check_iterator<T, char*>(text, size, end, type);
  check_iterator<T, const char*>(text, size, end, type);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = input.find('|');
  if (end != std::string::npos)
    input.erase(end, 1);

  // The memory ends at the end position, so that nothing can be read beyond it. An end position before the first digit
  // does not end the text.
  const bool is_bounded = end != std::string::npos && end > 1;
  const std::size_t length = is_bounded ? end : std::strlen(input.c_str());
  const std::size_t capacity = is_bounded ? length : length + 1;
  const std::unique_ptr<char[]> text(new char[capacity]);
  std::memcpy(text.get(), input.c_str(), capacity);

  check<signed char>(text.get(), length, end, "signed char");
  check<unsigned char>(text.get(), length, end, "unsigned char");
  check<short>(text.get(), length, end, "short");
  check<unsigned short>(text.get(), length, end, "unsigned short");
  check<int>(text.get(), length, end, "int");
  check<unsigned>(text.get(), length, end, "unsigned");
  check<long>(text.get(), length, end, "long");
  check<unsigned long>(text.get(), length, end, "unsigned long");
  check<long long>(text.get(), length, end, "long long");
  check<unsigned long long>(text.get(), length, end, "unsigned long long");
  return 0;
}
