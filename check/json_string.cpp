#include "check/json_string.h"

#include "check/characters.h"

#include <cstddef>

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
    else if (is_control_byte(c))
      result += "\\u00" + escape_bytes(std::string(1, static_cast<char>(c))).substr(2);
    else
      result.append(text, at, length);
    at += length == 0 ? 1 : length;
  }
  return result + '"';
}
