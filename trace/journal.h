#ifndef TRACE_JOURNAL_H
#define TRACE_JOURNAL_H

#include "trace/log.h"

#include <string>

/// Read the journal through journalctl(1) into the empty `log`: the entries of the unit, or with an empty `unit` those
/// of all processes with the name of the program. `since` is a time as journalctl takes it, or empty.
/// False, with a reason in `error`, if journalctl cannot be started or fails; it writes its own messages to standard
/// error. Any thread.
bool read_journal(const std::string& unit, const std::string& since, bool keeps_lines, Log& log, std::string& error);

#endif // TRACE_JOURNAL_H
