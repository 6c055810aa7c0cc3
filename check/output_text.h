#ifndef CHECK_OUTPUT_TEXT_H
#define CHECK_OUTPUT_TEXT_H

/// @file
/// Texts of any bytes become fit for output. Any thread.

#include <string>

/// The text with each control character, and each byte that is no UTF-8, as "\xhh".
std::string printable(const std::string& text);

/// The text as a string of JSON, with its quotes. A replacement character stands for each byte that is no UTF-8.
std::string json_string(const std::string& text);

#endif // CHECK_OUTPUT_TEXT_H
