#ifndef CHECK_CHARACTERS_H
#define CHECK_CHARACTERS_H

#include <cstddef>
#include <string>

/// Name the character that begins at `at`, with its bytes: "a no-break space (\xc2\xa0)". Any thread.
std::string name_character(const std::string& text, std::size_t at);

/// Name the first character of `text` that is not printable ASCII. Empty if there is none. Any thread.
std::string name_odd_character(const std::string& text);

/// The text with each byte that is not printable ASCII as "\xhh". Any thread.
std::string escape_bytes(const std::string& text);

/// Whether the byte is an ASCII control character. Any thread.
bool is_control_byte(unsigned char c);

/// The length of the UTF-8 sequence at `at`, or 0 if there is none. Forms that are not the shortest ones, surrogates
/// and code points that are too large are no UTF-8. Any thread.
std::size_t utf8_length(const std::string& text, std::size_t at);

/// The text with each byte as "\xhh" that a terminal would take for a command, or that is no UTF-8. Any thread.
std::string escape_controls(const std::string& text);

#endif // CHECK_CHARACTERS_H
