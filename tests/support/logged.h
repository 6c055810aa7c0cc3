#ifndef TESTS_SUPPORT_LOGGED_H
#define TESTS_SUPPORT_LOGGED_H

#include "tests/support/log_capture.h"

#include <ace/Log_Priority.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <ostream>
#include <string>

/// The part of a log record that tests compare. The builders below make the expected ones.
struct Logged
{
  int priority;
  int status;
  std::string text;
  std::string file; ///< empty where a test compares records without their source files

  /// The same record, logged by the source file `source`.
  Logged in(const std::string& source) const { return {priority, status, text, source}; }
};

inline bool operator==(const Logged& left, const Logged& right)
{
  return left.priority == right.priority && left.status == right.status && left.text == right.text &&
         left.file == right.file;
}

/// Writes one line, for the output of a failing test.
inline std::ostream& operator<<(std::ostream& out, const Logged& logged)
{
  return out << "priority=" << logged.priority << " status=" << logged.status << ' ' << logged.file << ' '
             << logged.text;
}

/// The record as a test compares it, with or without its source file.
inline Logged with_file(const Record& record)
{
  return {record.priority, record.status, record.text, record.file};
}
inline Logged without_file(const Record& record)
{
  return {record.priority, record.status, record.text, ""};
}

// An expected record of each priority: with status 0, or with status -1 where the name ends in "failed".

inline Logged debug(const std::string& text)
{
  return {LM_DEBUG, 0, text, ""};
}
inline Logged info(const std::string& text)
{
  return {LM_INFO, 0, text, ""};
}
inline Logged warning(const std::string& text)
{
  return {LM_WARNING, 0, text, ""};
}
inline Logged warning_failed(const std::string& text)
{
  return {LM_WARNING, -1, text, ""};
}
inline Logged error(const std::string& text)
{
  return {LM_ERROR, 0, text, ""};
}
inline Logged error_failed(const std::string& text)
{
  return {LM_ERROR, -1, text, ""};
}
inline Logged alert(const std::string& text)
{
  return {LM_ALERT, 0, text, ""};
}
inline Logged emergency(const std::string& text)
{
  return {LM_EMERGENCY, 0, text, ""};
}
inline Logged emergency_failed(const std::string& text)
{
  return {LM_EMERGENCY, -1, text, ""};
}

/// Matches a record that equals `expected` but for the end of its text, where a back trace or the like follows.
MATCHER_P(BeginsLike, expected, "begins like " + testing::PrintToString(expected))
{
  Logged begin = arg;
  begin.text.resize(std::min(begin.text.size(), expected.text.size()));
  return begin == expected;
}

#endif // TESTS_SUPPORT_LOGGED_H
