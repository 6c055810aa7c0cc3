#include "check/output_text.h"

#include <cstddef>

static std::string hexadecimal(const char* prefix, unsigned char c)
{
  static const char DIGITS[] = "0123456789abcdef";
  return prefix + std::string{DIGITS[c >> 4], DIGITS[c & 0xf]};
}

static bool is_control(unsigned char c)
{
  return c < 0x20 || c == 0x7f;
}

// The length of the UTF-8 sequence at `at`, or 0 if there is none. Forms that are not the shortest ones, surrogates and
// code points that are too large are no UTF-8.
static std::size_t utf8_length(const std::string& text, std::size_t at)
{
  const auto byte = [&](std::size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U; };
  const unsigned first = byte(0);
  if (first < 0x80)
    return 1;

  const std::size_t length = first >= 0xc2 && first < 0xe0   ? 2
                             : first >= 0xe0 && first < 0xf0 ? 3
                             : first >= 0xf0 && first < 0xf5 ? 4
                                                             : 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xc0) != 0x80)
      return 0;

  const unsigned second = byte(1);
  const bool is_wrong = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                        (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
  return is_wrong ? 0 : length;
}

std::string printable(const std::string& text)
{
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    const std::size_t length = utf8_length(text, at);
    const bool is_c1 = length == 2 && c == 0xc2 &&
                       static_cast<unsigned char>(text[at + 1]) < 0xa0; // these code points are control characters too
    if (length == 0 || is_control(c) || is_c1)
      result += hexadecimal("\\x", c);
    else
      result.append(text, at, length);
    at += length == 0 || is_c1 ? 1 : length;
  }
  return result;
}

std::string json_string(const std::string& text)
{
  std::string result = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    const std::size_t length = utf8_length(text, at);
    if (length == 0)
      result += "\\ufffd";
    else if (c == '"' || c == '\\')
      result += {'\\', static_cast<char>(c)};
    else if (is_control(c))
      result += hexadecimal("\\u00", c);
    else
      result.append(text, at, length);
    at += length == 0 ? 1 : length;
  }
  return result + '"';
}
