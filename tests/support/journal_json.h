#ifndef TESTS_SUPPORT_JOURNAL_JSON_H
#define TESTS_SUPPORT_JOURNAL_JSON_H

#include "tests/support/fake_journal.h"

#include <string>

/// The fields of an entry as "journalctl -o json" writes it in a line: a text, or an array of the bytes of a value that
/// is no text. Of a field that an entry has several times, the first one. The test fails for anything else.
Entry_Fields parse_json_entry(const std::string& line);

#endif // TESTS_SUPPORT_JOURNAL_JSON_H
