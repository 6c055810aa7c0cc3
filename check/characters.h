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

#endif // CHECK_CHARACTERS_H
