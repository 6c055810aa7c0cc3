#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <ostream>
#include <string>
#include <vector>

/// A log record as it was written.
struct Record
{
  int priority;
  int status;
  int error; ///< the `errno` that the record carries
  std::string file;
  int line;
  std::string text;
};

/// Writes one line, for the output of a failing test.
std::ostream& operator<<(std::ostream& out, const Record& record);

/// As long as the object lives, it catches the records of the thread that made it, which do not reach standard error.
/// There may be one object at a time in a process. At its end the test fails for a record that the manual does not
/// list.
class Log_Capture : public ACE_Log_Msg_Callback
{
public:
  Log_Capture();
  ~Log_Capture() override;

  Log_Capture(const Log_Capture&) = delete;
  Log_Capture& operator=(const Log_Capture&) = delete;

  const std::vector<Record>& records() const { return records_; }

  void log(ACE_Log_Record& record) override;

private:
  ACE_Log_Msg_Callback* const previous_;
  const unsigned long flags_;
  std::vector<Record> records_;
};

#endif // TESTS_SUPPORT_LOG_CAPTURE_H
