#ifndef TESTS_FAULTS_VERDICT_H
#define TESTS_FAULTS_VERDICT_H

#include "tests/faults/injection.h"
#include "tests/faults/scenario.h"

#include <string>
#include <vector>

/// The kinds of end that a run can come to.
enum End {
  AS_USUAL,        ///< status 0, exactly the records of a run without an injection
  WITH_RECORDS,    ///< status 0 after the termination, with records that tell of an error
  RECORDS_MISSING, ///< status 0 after the termination, which stands in the log, with fewer records than usual
  BY_ITSELF,       ///< status 0 before the termination, with records that tell of an error
  ABORTED,         ///< SIGABRT after an exception with its record, before any service: faults are not caught yet
  FAULT,           ///< status 0 after a fault or an exception, with its record
  SILENT,          ///< status 0, and nothing in the log tells why it has ended
  STATUS,          ///< another status
  SIGNALLED,       ///< ended by a signal
  HANG,            ///< still there at the deadline
  END_COUNT
};

/// The name of the end in the report.
const char* name_of(End end);

/// The end of a run, where `usual` is the log of one without an injection.
End end_of(const Outcome& outcome, const std::string& usual);

/// Whether no run may end like that.
bool is_wrong(End end);

/// Why a run may come to this end, with this log, all the same; empty when it may not. The list is in the source.
std::string excuse_of(const Injection& injection, End end, const std::string& log);

#endif // TESTS_FAULTS_VERDICT_H
