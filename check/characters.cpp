#include "check/characters.h"

#include <algorithm>

namespace
{
// Characters that look like others, or like nothing: a text brings them along that was not typed in an editor for code.
struct Character
{
  const char* bytes;
  const char* name;
};

constexpr Character CHARACTERS[] = {{"\t", "a tab"},
                                    {"\xef\xbb\xbf", "a byte-order mark"},
                                    {"\xc2\xa0", "a no-break space"},
                                    {"\xe2\x80\xaf", "a no-break space"},
                                    {"\xe2\x80\x8b", "a space without width"},
                                    {"\xc2\xad", "a soft hyphen"},
                                    {"\xe2\x80\x90", "a typographic hyphen"},
                                    {"\xe2\x80\x91", "a typographic hyphen"},
                                    {"\xe2\x80\x93", "a typographic dash"},
                                    {"\xe2\x80\x94", "a typographic dash"},
                                    {"\xe2\x88\x92", "a typographic minus"},
                                    {"\xe2\x80\x98", "a typographic quote"},
                                    {"\xe2\x80\x99", "a typographic quote"},
                                    {"\xe2\x80\x9a", "a typographic quote"},
                                    {"\xe2\x80\x9b", "a typographic quote"},
                                    {"\xe2\x80\x9c", "a typographic quote"},
                                    {"\xe2\x80\x9d", "a typographic quote"},
                                    {"\xe2\x80\x9e", "a typographic quote"},
                                    {"\xe2\x80\x9f", "a typographic quote"},
                                    {"\xc2\xab", "a typographic quote"},
                                    {"\xc2\xbb", "a typographic quote"}};

bool is_plain(char c)
{
  return c >= ' ' && c <= '~';
}

// The bytes that go on behind the first one of a character have these two bits.
bool is_continuation(char c)
{
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

bool is_first_of_several(char c)
{
  return (static_cast<unsigned char>(c) & 0xc0) == 0xc0;
}
} // namespace

static std::string escape_byte(char c)
{
  static constexpr char DIGITS[] = "0123456789abcdef";
  const unsigned value = static_cast<unsigned char>(c);
  return {'\\', 'x', DIGITS[value / 16], DIGITS[value % 16]};
}

std::string escape_bytes(const std::string& text)
{
  std::string result;
  for (const char c : text)
    result += is_plain(c) ? std::string(1, c) : escape_byte(c);
  return result;
}

std::string name_character(const std::string& text, std::size_t at)
{
  for (const Character& character : CHARACTERS)
    if (text.compare(at, std::char_traits<char>::length(character.bytes), character.bytes) == 0)
      return std::string(character.name) + " (" + escape_bytes(character.bytes) + ')';

  std::size_t end = at + 1;
  while (end < text.size() && is_first_of_several(text[at]) && is_continuation(text[end]))
    ++end;
  return "a character that is not printable ASCII (" + escape_bytes(text.substr(at, end - at)) + ')';
}

std::string name_odd_character(const std::string& text)
{
  const auto odd = std::find_if_not(text.begin(), text.end(), is_plain);
  return odd == text.end() ? "" : name_character(text, static_cast<std::size_t>(odd - text.begin()));
}

bool is_control_byte(unsigned char c)
{
  return c < 0x20 || c == 0x7f;
}

std::size_t utf8_length(const std::string& text, std::size_t at)
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

std::string escape_controls(const std::string& text)
{
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    const std::size_t length = utf8_length(text, at);
    const bool is_c1 = length == 2 && c == 0xc2 &&
                       static_cast<unsigned char>(text[at + 1]) < 0xa0; // these code points are control characters too
    if (length == 0 || is_control_byte(c) || is_c1)
      result += escape_byte(text[at]);
    else
      result.append(text, at, length);
    at += length == 0 || is_c1 ? 1 : length;
  }
  return result;
}
