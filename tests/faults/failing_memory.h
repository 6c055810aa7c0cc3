#ifndef TESTS_FAULTS_FAILING_MEMORY_H
#define TESTS_FAULTS_FAILING_MEMORY_H

/// The line that the preloaded library writes to standard error when an allocation fails while the program does not
/// catch faults yet.
constexpr char BEFORE_FAULTS_ARE_CAUGHT[] = "An allocation fails before faults are caught.";

#endif // TESTS_FAULTS_FAILING_MEMORY_H
