#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include "tests/faults/injection.h"

#include <map>
#include <string>

/// How a run went: the program loads two services from a configuration directory, gets a hang-up when it is ready, and
/// a termination when it has reloaded them.
struct Outcome
{
  int status = 0;           ///< the exit status, or the negative number of the signal that ended the process
  bool hangs = false;       ///< it did not end in time and was killed, the status is none
  bool was_told_to = false; ///< the termination was sent before the end
  std::string log;          ///< what it wrote to standard error
};

/// Run the program under the injection, or without any if its call is empty.
Outcome run(const Configuration& configuration, const Injection& injection);

/// How often a run without an injection makes each system call that can fail: per thread, that of the one which makes
/// the most.
std::map<std::string, unsigned long> count_calls(const Configuration& configuration);

/// How often a run without an injection allocates memory.
unsigned long count_allocations(const Configuration& configuration);

#endif // TESTS_FAULTS_SCENARIO_H
