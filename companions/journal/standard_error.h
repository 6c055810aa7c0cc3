#ifndef COMPANIONS_JOURNAL_STANDARD_ERROR_H
#define COMPANIONS_JOURNAL_STANDARD_ERROR_H

class ACE_Log_Record;

/// Write `record` to standard error in the form that the flags of the framework's log ask for.
///
/// Standard error may lead to the journal too, through a socket, and the journal may stand still: a record that such a
/// socket does not take at once is dropped. A file, a pipe or a terminal is written to as the framework does it. Takes
/// no memory and no lock of standard error's stream; may change errno. Any thread, in signal handlers too.
void write_standard_error(ACE_Log_Record& record);

#endif // COMPANIONS_JOURNAL_STANDARD_ERROR_H
