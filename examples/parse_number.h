#ifndef EXAMPLES_PARSE_NUMBER_H
#define EXAMPLES_PARSE_NUMBER_H

#include "scrt/natoi.h"

#include <cerrno>

/// The number that `text` is: digits and nothing else, up to `max`. False when it is none, or null. Any thread.
inline bool parse_number(const char* text, unsigned max, unsigned& number)
{
  const char* end = nullptr;
  number = natoi<unsigned, const char*>(text, nullptr, &end);

  return errno == 0 && *end == '\0' && number <= max;
}

#endif // EXAMPLES_PARSE_NUMBER_H
