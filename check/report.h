#ifndef CHECK_REPORT_H
#define CHECK_REPORT_H

#include "check/finding.h"
#include "check/services.h"

#include <string>

/// The findings as text, one a line: "FILE:LINE: KIND: MESSAGE", or "command line: KIND: MESSAGE". The
/// word "warning: " stands before the kind of a warning. Bytes that a terminal would take for a command, or that are no
/// UTF-8, are written as an escape such as \x1b. Any thread.
std::string format_text(const Findings& findings);

/// The line that stands in place of findings when there are none. It tells what has been looked at, so that a check of
/// nothing is noticed. Any thread.
std::string format_nothing(const Checked_Configuration& checked);

/// The findings as one JSON object and a newline: {"findings": [{"kind", "severity", "file", "line", "message"},
/// ...], "checked": {"files", "directives", "services"}}, the last three being numbers. "severity" is "error" or
/// "warning", "file" is null for the command line, "line" is null where there is none. The result is valid UTF-8
/// whatever bytes the texts hold: bytes that are no UTF-8 become U+FFFD. Any thread.
std::string format_json(const Findings& findings, const Checked_Configuration& checked);

#endif // CHECK_REPORT_H
