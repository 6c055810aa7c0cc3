#include "check/characters.h"

#include "scrt/string_sprintf.h"

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

std::string escape_bytes(const std::string& text)
{
  std::string result;
  for (const char c : text) {
    std::string escape;
    string_sprintf(escape, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    result += is_plain(c) ? std::string(1, c) : escape;
  }
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
