#ifndef CHECK_JSON_STRING_H
#define CHECK_JSON_STRING_H

#include <string>

/// The text as a string of JSON, with its quotes. A replacement character stands for each byte that is no UTF-8. Any
/// thread.
std::string json_string(const std::string& text);

#endif // CHECK_JSON_STRING_H
