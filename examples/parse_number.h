#ifndef EXAMPLES_PARSE_NUMBER_H
#define EXAMPLES_PARSE_NUMBER_H

#include "scrt/natoi.h"

#include <cerrno>

/// Set `number` to the number in `text`, which has digits only and is `max` at most. Returns false when `text` is null
/// or no such number. Any thread.
inline bool parse_number(const char* text, unsigned max, unsigned& number)
{
  const char* end = nullptr;
  number = natoi<unsigned, const char*>(text, nullptr, &end);

  return errno == 0 && *end == '\0' && number <= max;
}

#endif // EXAMPLES_PARSE_NUMBER_H
