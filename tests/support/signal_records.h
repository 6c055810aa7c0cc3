#ifndef TESTS_SUPPORT_SIGNAL_RECORDS_H
#define TESTS_SUPPORT_SIGNAL_RECORDS_H

#include "tests/support/logged.h"
#include "tests/support/starter_process.h"

#include <string>
#include <vector>

/// The beginning that the records of terminations and of faults share.
std::string caught_in(int signo, const std::string& thread);

/// Those of Starter_Process::records() in which `text` stands.
std::vector<Logged> records_with(const Starter_Process& starter, const std::string& text);

#endif // TESTS_SUPPORT_SIGNAL_RECORDS_H
