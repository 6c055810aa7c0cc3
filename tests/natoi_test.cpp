#include "scrt/natoi.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cstring>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

// The result of a conversion: the value, errno, and the distance of *eptr from the start of the text.
template <typename T>
struct Outcome
{
  T value;
  int error;
  std::ptrdiff_t stop;
};

template <typename T>
static bool operator==(const Outcome<T>& a, const Outcome<T>& b)
{
  return a.value == b.value && a.error == b.error && a.stop == b.stop;
}

template <typename T>
static std::ostream& operator<<(std::ostream& out, const Outcome<T>& outcome)
{
  return out << outcome.value << ", errno " << outcome.error << ", stopped at " << outcome.stop;
}

template <typename T, typename U>
static Outcome<T> convert(U beg, U end)
{
  U stop = nullptr;
  errno = EBADF; // the conversion must overwrite an old errno
  const T value = natoi<T, U>(beg, end, &stop);
  return {value, errno, stop - beg};
}

template <typename T>
struct Case
{
  const char* text;
  Outcome<T> expected;
};

// The text with a number in place of every byte that a terminal does not show unambiguously.
static std::string printable(const std::string& text)
{
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte < 0x7f && c != '\\')
      out += c;
    else
      out += '\\' + std::to_string(byte) + ';';
  }
  return '"' + out + '"';
}

// Converts every text through both iterator types, with and without an *eptr to set.
template <typename T>
static void expect_outcomes(std::initializer_list<Case<T>> cases)
{
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(printable(text));
    std::string writable(text);

    EXPECT_EQ(expected, (convert<T, const char*>(text, nullptr)));
    EXPECT_EQ(expected, (convert<T, char*>(writable.data(), nullptr)));
    EXPECT_EQ(text, writable);

    errno = EBADF;
    const T value = natoi<T, const char*>(text, nullptr, nullptr);
    EXPECT_EQ(expected.error, errno);
    EXPECT_EQ(expected.value, value);
  }
}

TEST(natoi, converts_the_whole_range_of_short)
{
  expect_outcomes<short>({{"0", {0, 0, 1}},
                          {"60\n", {60, 0, 2}},
                          {"+60", {60, 0, 3}},
                          {"-60", {-60, 0, 3}},
                          {"-0", {0, 0, 2}},
                          {"32767", {32767, 0, 5}},
                          {"+32767", {32767, 0, 6}},
                          {"-32767", {-32767, 0, 6}},
                          {"-32768", {-32768, 0, 6}},
                          {"0000032767", {32767, 0, 10}}});
}

TEST(natoi, converts_the_whole_range_of_int)
{
  expect_outcomes<int>({{"0", {0, 0, 1}},
                        {"12345", {12345, 0, 5}},
                        {"-1", {-1, 0, 2}},
                        {"2147483647", {2147483647, 0, 10}},
                        {"-2147483647", {-2147483647, 0, 11}},
                        {"-2147483648", {std::numeric_limits<int>::min(), 0, 11}}});
}

TEST(natoi, converts_the_whole_range_of_unsigned)
{
  expect_outcomes<unsigned>(
      {{"0", {0, 0, 1}}, {"+4", {4, 0, 2}}, {"2147483648", {2147483648, 0, 10}}, {"4294967295", {4294967295, 0, 10}}});
}

TEST(natoi, converts_the_whole_range_of_the_64_bit_types)
{
  expect_outcomes<unsigned long long>({{"0", {0, 0, 1}},
                                       {"+30000000", {30000000, 0, 9}},
                                       {"4294967296", {4294967296, 0, 10}},
                                       {"9223372036854775808", {9223372036854775808U, 0, 19}},
                                       {"18446744073709551615", {18446744073709551615U, 0, 20}}});
  expect_outcomes<long long>({{"9223372036854775807", {std::numeric_limits<long long>::max(), 0, 19}},
                              {"-9223372036854775807", {-std::numeric_limits<long long>::max(), 0, 20}},
                              {"-9223372036854775808", {std::numeric_limits<long long>::min(), 0, 20}}});
}

TEST(natoi, answers_overflow_with_the_largest_value_and_stops_at_the_digit_too_many)
{
  expect_outcomes<short>({{"32768", {32767, ERANGE, 4}},
                          {"32770", {32767, ERANGE, 4}},
                          {"40000", {32767, ERANGE, 4}},
                          {"327670", {32767, ERANGE, 5}},
                          {"65536", {32767, ERANGE, 4}},
                          {"123456789x", {32767, ERANGE, 5}},
                          {"000032768", {32767, ERANGE, 8}}});
  expect_outcomes<int>({{"2147483648", {2147483647, ERANGE, 9}}, {"99999999999", {2147483647, ERANGE, 9}}});
  expect_outcomes<unsigned>({{"4294967296", {4294967295, ERANGE, 9}}, {"42949672950", {4294967295, ERANGE, 10}}});
  expect_outcomes<unsigned long long>({{"18446744073709551616", {18446744073709551615U, ERANGE, 19}},
                                       {"184467440737095516150", {18446744073709551615U, ERANGE, 20}}});
  expect_outcomes<long long>({{"9223372036854775808", {std::numeric_limits<long long>::max(), ERANGE, 18}}});
}

// Callers recognise overflow by errno, never by the sign of the result.
TEST(natoi, answers_negative_overflow_with_the_largest_positive_value)
{
  expect_outcomes<short>({{"-32769", {32767, ERANGE, 5}}, {"-99999", {32767, ERANGE, 5}}});
  expect_outcomes<int>({{"-2147483649", {2147483647, ERANGE, 10}}});
  expect_outcomes<long long>({{"-9223372036854775809", {std::numeric_limits<long long>::max(), ERANGE, 19}}});
}

TEST(natoi, refuses_empty_text)
{
  expect_outcomes<short>({{"", {0, EINVAL, 0}}});
  expect_outcomes<int>({{"", {0, EINVAL, 0}}});
  expect_outcomes<unsigned>({{"", {0, EINVAL, 0}}});
  expect_outcomes<unsigned long long>({{"", {0, EINVAL, 0}}});
}

template <typename T, typename U>
static void expect_null_is_refused()
{
  char other[] = "7";
  U stop = other;
  errno = EBADF;
  const T value = natoi<T, U>(nullptr, nullptr, &stop);
  const int error = errno;

  EXPECT_EQ(0U, value);
  EXPECT_EQ(EINVAL, error);
  EXPECT_EQ(nullptr, stop);
}

TEST(natoi, refuses_null_text_and_hands_it_back_as_the_stop)
{
  expect_null_is_refused<unsigned short, char*>();
  expect_null_is_refused<unsigned, const char*>();
  expect_null_is_refused<unsigned long long, const char*>();
  errno = EBADF;
  EXPECT_EQ(0, (natoi<int, const char*>(nullptr, nullptr, nullptr)));
  EXPECT_EQ(EINVAL, errno);
}

TEST(natoi, refuses_a_minus_sign_for_unsigned_types_without_taking_it)
{
  expect_outcomes<unsigned>(
      {{"-1", {0, EINVAL, 0}}, {"-0", {0, EINVAL, 0}}, {"-", {0, EINVAL, 0}}, {"-99999999999", {0, EINVAL, 0}}});
  expect_outcomes<unsigned long long>({{"-1", {0, EINVAL, 0}}, {"-", {0, EINVAL, 0}}});
}

TEST(natoi, refuses_text_without_a_digit_after_the_optional_sign)
{
  expect_outcomes<int>({{" 7", {0, EINVAL, 0}},
                        {"\t7", {0, EINVAL, 0}},
                        {"\n", {0, EINVAL, 0}},
                        {"abc", {0, EINVAL, 0}},
                        {"x1", {0, EINVAL, 0}},
                        {"/", {0, EINVAL, 0}},
                        {":", {0, EINVAL, 0}},
                        {"\xb2", {0, EINVAL, 0}},
                        {"+", {0, EINVAL, 1}},
                        {"-", {0, EINVAL, 1}},
                        {"+ 7", {0, EINVAL, 1}},
                        {"- 7", {0, EINVAL, 1}},
                        {"--7", {0, EINVAL, 1}},
                        {"+-7", {0, EINVAL, 1}},
                        {"-+7", {0, EINVAL, 1}},
                        {"++7", {0, EINVAL, 1}}});
  expect_outcomes<unsigned>(
      {{" 7", {0, EINVAL, 0}}, {"+", {0, EINVAL, 1}}, {"+ 7", {0, EINVAL, 1}}, {"+-7", {0, EINVAL, 1}}});
  expect_outcomes<unsigned long long>({{" 7", {0, EINVAL, 0}}, {"+", {0, EINVAL, 1}}});
}

TEST(natoi, takes_trailing_text_for_no_error)
{
  expect_outcomes<int>({{"0x1A", {0, 0, 1}},
                        {"007", {7, 0, 3}},
                        {"010", {10, 0, 3}},
                        {"12abc", {12, 0, 2}},
                        {"12 34", {12, 0, 2}},
                        {"1e3", {1, 0, 1}},
                        {"1.5", {1, 0, 1}},
                        {"1,000", {1, 0, 1}},
                        {"5-3", {5, 0, 1}},
                        {"9/", {9, 0, 1}},
                        {"9:", {9, 0, 1}},
                        {"9\xb2", {9, 0, 1}}});
  expect_outcomes<unsigned>({{"30s", {30, 0, 2}}});
}

TEST(natoi, stops_at_the_end_position)
{
  const struct
  {
    const char* text;
    std::ptrdiff_t end;
    Outcome<int> expected;
  } cases[] = {{"12345", 3, {123, 0, 3}},
               {"12345", 5, {12345, 0, 5}},
               {"12345", 0, {0, EINVAL, 0}},
               {"12a45", 4, {12, 0, 2}},
               {"-12345", 3, {-12, 0, 3}},
               {"-12345", 1, {0, EINVAL, 1}},
               {"+1", 1, {0, EINVAL, 1}},
               {"99999999999", 9, {999999999, 0, 9}},
               {"21474836480", 10, {2147483647, ERANGE, 9}}};

  for (const auto& [text, end, expected] : cases) {
    SCOPED_TRACE(std::string(text) + " up to " + std::to_string(end));
    std::string writable(text);

    EXPECT_EQ(expected, (convert<int, const char*>(text, text + end)));
    EXPECT_EQ(expected, (convert<int, char*>(writable.data(), writable.data() + end)));
  }
}

TEST(natoi, needs_no_terminating_nul_before_the_end_position)
{
  const char digits[] = {'4', '2'};

  EXPECT_EQ((Outcome<unsigned>{42, 0, 2}), (convert<unsigned, const char*>(digits, digits + 2)));
}

// The end position is compared for equality only, and not at all when the sign is read.
TEST(natoi, runs_past_an_end_at_the_start_of_a_signed_text)
{
  const char* const minus = "-12345x";
  const char* const plus = "+678";

  EXPECT_EQ((Outcome<int>{-12345, 0, 6}), (convert<int, const char*>(minus, minus)));
  EXPECT_EQ((Outcome<int>{678, 0, 4}), (convert<int, const char*>(plus, plus)));
  EXPECT_EQ((Outcome<unsigned long long>{678, 0, 4}), (convert<unsigned long long, const char*>(plus, plus)));
}

TEST(natoi, preconditions_refuse_a_null_or_empty_text)
{
  char text[] = "7";
  char empty[] = "";

  EXPECT_TRUE((natoi_traits<char*, true>::pre_cond(text)));
  EXPECT_TRUE((natoi_traits<const char*, true>::pre_cond(" ")));
  EXPECT_FALSE((natoi_traits<char*, true>::pre_cond(empty)));
  EXPECT_FALSE((natoi_traits<char*, true>::pre_cond(nullptr)));
  EXPECT_FALSE((natoi_traits<const char*, true>::pre_cond("")));
}

// Whether the decimal text `digits` is a larger number than `limit`, which has no leading zeros. The lengths are
// compared first, then the digits.
static bool is_larger(const std::string& digits, const std::string& limit)
{
  const std::size_t zeros = digits.find_first_not_of('0');
  const std::string significant = zeros == std::string::npos ? "" : digits.substr(zeros);
  return significant.size() != limit.size() ? significant.size() > limit.size() : significant > limit;
}

// The expected result, computed on the text alone: which span of it is the number, and whether the text of this number
// is larger than the text of the limit. The C library converts the remaining numbers.
template <typename T>
static Outcome<T> work_out(const std::string& text, std::size_t end)
{
  if (text.empty() || (std::is_unsigned<T>::value && text[0] == '-'))
    return {0, EINVAL, 0};

  const std::size_t sign = text[0] == '+' || text[0] == '-' ? 1 : 0;
  std::size_t stop = std::min(text.find_first_not_of("0123456789", sign), text.size());
  if (end >= sign) // an end position at the sign is not noticed
    stop = std::min(stop, end);
  const std::string digits = text.substr(sign, stop - sign);
  if (digits.empty())
    return {0, EINVAL, static_cast<std::ptrdiff_t>(sign)};

  const std::string limit = text[0] == '-' ? std::to_string(std::numeric_limits<T>::min()).substr(1)
                                           : std::to_string(std::numeric_limits<T>::max());
  for (std::size_t n = 1; n <= digits.size(); ++n)
    if (is_larger(digits.substr(0, n), limit))
      return {std::numeric_limits<T>::max(), ERANGE, static_cast<std::ptrdiff_t>(sign + n - 1)};

  T value = 0;
  const std::string number = (text[0] == '-' ? "-" : "") + digits;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  EXPECT_EQ(std::errc(), result.ec);
  return {value, 0, static_cast<std::ptrdiff_t>(stop)};
}

// Texts around the limits of every type, with signs, zeros and other characters around the numbers.
class Text_Generator
{
public:
  explicit Text_Generator(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random_); }

  std::string text()
  {
    static const char* const prefixes[] = {"", "", "", "-", "-", "+", "+", " ", "--", "-+", "0x", "\t-"};
    static const char* const suffixes[] = {"", "", "", "", "\n", "x", " ", "0", "9", "-", ".5", "\xb2", "/", ":"};
    return prefixes[below(std::size(prefixes))] + std::string(below(4) ? 0 : below(25), '0') + number() +
           suffixes[below(std::size(suffixes))];
  }

private:
  std::string number()
  {
    static const char* const limits[] = {
        "32767", "65535", "2147483647", "4294967295", "9223372036854775807", "18446744073709551615"};
    std::string digits;
    switch (below(4)) {
    case 0:
      for (std::size_t n = below(22); n > 0; --n)
        digits += static_cast<char>('0' + below(10));
      return digits;
    case 1: // arbitrary bytes
      for (std::size_t n = below(6); n > 0; --n)
        digits += static_cast<char>(1 + below(255));
      return digits;
    default: // a limit with a digit or two changed, most often the last
      digits = limits[below(std::size(limits))];
      for (std::size_t n = below(3); n > 0; --n)
        digits[below(2) ? digits.size() - 1 : below(digits.size())] = static_cast<char>('0' + below(10));
      return digits;
    }
  }

  std::mt19937 random_;
};

template <typename T>
static void expect_worked_out(std::string text, std::size_t end)
{
  char* const beg = text.data();
  char* const bound = end == std::string::npos ? nullptr : beg + end;
  const Outcome<T> expected = work_out<T>(text, end);
  const std::string what = printable(text) + " up to " + (bound ? std::to_string(end) : "its end");

  EXPECT_EQ(expected, (convert<T, char*>(beg, bound))) << what;
  EXPECT_EQ(expected, (convert<T, const char*>(beg, bound))) << what;
}

TEST(natoi, agrees_with_a_conversion_done_digit_by_digit)
{
  Text_Generator generator(20240229);

  for (int n = 0; n < 60000 && !HasFailure(); ++n) {
    const std::string text = generator.text();
    const std::size_t end = generator.below(3) ? std::string::npos : generator.below(text.size() + 1);

    expect_worked_out<short>(text, end);
    expect_worked_out<unsigned short>(text, end);
    expect_worked_out<int>(text, end);
    expect_worked_out<unsigned>(text, end);
    expect_worked_out<long>(text, end);
    expect_worked_out<long long>(text, end);
    expect_worked_out<unsigned long long>(text, end);
  }
}

// The number of digits that cannot overflow is passed one by one, by digits that fit, by the limit itself, by its
// neighbours and by digits too many. Leading zeros count among these digits.
template <typename T>
static void expect_boundary_worked_out()
{
  const std::size_t safe = std::numeric_limits<T>::digits10;
  const std::string largest = std::to_string(std::numeric_limits<T>::max());

  std::vector<std::string> numbers;
  for (const char digit : {'0', '1', '9'})
    for (std::size_t length = safe - 1; length <= safe + 3; ++length)
      numbers.push_back(std::string(length, digit));
  for (const char last : {'0', '4', '5', '6', '7', '8', '9'})
    numbers.push_back(largest.substr(0, largest.size() - 1) + last);
  numbers.push_back(largest + '0');
  numbers.push_back(largest.substr(0, largest.size() - 1));

  for (const std::string& number : numbers)
    for (const std::size_t zeros : {std::size_t{0}, std::size_t{1}, safe - 1, safe, safe + 1, std::size_t{25}})
      for (const char* const sign : {"", "-", "+"})
        for (const char* const suffix : {"", "x", "/", ":"}) {
          const std::string text = sign + std::string(zeros, '0') + number + suffix;
          expect_worked_out<T>(text, std::string::npos);
          for (const std::size_t end : {zeros + safe - 1, zeros + safe, zeros + safe + 1, safe, safe + 1})
            if (end <= text.size())
              expect_worked_out<T>(text, end);
        }
}

TEST(natoi, compares_with_the_limit_as_soon_as_a_digit_can_overflow)
{
  expect_boundary_worked_out<short>();
  expect_boundary_worked_out<unsigned short>();
  expect_boundary_worked_out<int>();
  expect_boundary_worked_out<unsigned>();
  expect_boundary_worked_out<long>();
  expect_boundary_worked_out<unsigned long>();
  expect_boundary_worked_out<long long>();
  expect_boundary_worked_out<unsigned long long>();
}

TEST(natoi, agrees_with_the_value_of_every_short)
{
  for (int value = -40000; value <= 70000 && !HasFailure(); ++value)
    expect_worked_out<short>(std::to_string(value), std::string::npos);
}
