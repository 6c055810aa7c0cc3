#ifndef TESTS_SUPPORT_SCRIBE_TEXTS_H
#define TESTS_SUPPORT_SCRIBE_TEXTS_H

#include <ace/Log_Priority.h>

#include <string>

/// The framework's priorities, and the number of each in the journal.
struct Scribe_Priority
{
  ACE_Log_Priority priority;
  int number;
};

inline constexpr Scribe_Priority SCRIBE_PRIORITIES[] = {
    {LM_EMERGENCY, 0}, {LM_ALERT, 1},   {LM_CRITICAL, 2}, {LM_ERROR, 3}, {LM_WARNING, 4}, {LM_NOTICE, 5},
    {LM_INFO, 6},      {LM_STARTUP, 6}, {LM_SHUTDOWN, 6}, {LM_DEBUG, 7}, {LM_TRACE, 7},
};
enum { SCRIBE_PRIORITY_COUNT = sizeof SCRIBE_PRIORITIES / sizeof SCRIBE_PRIORITIES[0] };

/// The text of record `i` of the service "scribe", without the newline that ends a record: plain, or with UTF-8, with
/// several lines, with control characters, as long as a back trace, in no encoding, or with an empty line at its end.
inline std::string scribe_text(unsigned i)
{
  std::string text = '#' + std::to_string(i) + ' ';
  switch (i % 7) {
  case 0:
    return text + "a record.";
  case 1:
    return text + "Gr\u00fc\u00dfe, \u4e16\u754c, \U0001F600.";
  case 2:
    return text + "first\nMESSAGE=second\n\nlast";
  case 3:
    for (int c = 1; c < 0x20; ++c)
      text += static_cast<char>(c);
    return text + '\x7f';
  case 4:
    for (unsigned frame = 0; text.size() < 3900; ++frame)
      text += "\nlibservice.so(_ZN7Service12handle_inputEi+0x" + std::to_string(i + frame) + ") [0x7f0123456789]";
    return text;
  case 5:
    for (int c = 0x80; c < 0x100; ++c)
      text += static_cast<char>(c);
    return text;
  default:
    return text + "the next line is empty\n";
  }
}

#endif // TESTS_SUPPORT_SCRIBE_TEXTS_H
