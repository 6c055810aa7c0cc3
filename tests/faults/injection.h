#ifndef TESTS_FAULTS_INJECTION_H
#define TESTS_FAULTS_INJECTION_H

#include <string>
#include <vector>

/// A way of starting the program.
struct Configuration
{
  std::string name;
  std::vector<std::string> args;
  bool has_threads; ///< whose system calls fail too
};

/// All of them.
const std::vector<Configuration>& configurations();

/// The `when`-th system call `call` fails with `effect`, or the `when`-th allocation does if `call` is "memory"; and so
/// does every later one if `for_ever`. Of writes, those to standard error count: those to a pipe or an eventfd of the
/// program's own do not fail. Where a process has several threads, each counts its own system calls, and so
/// does each process that the program starts.
struct Injection
{
  std::string call;   ///< empty for none
  std::string effect; ///< such as "error=ENOMEM"; empty for memory
  unsigned long when = 0;
  bool for_ever = false;

  bool is_memory() const { return call == "memory"; }
};

/// A run of the program under an injection.
struct Case
{
  const Configuration* configuration;
  Injection injection;
};

/// Such as "tp openat:error=EMFILE:when=7+" or "default memory:when=12". The part after the blank is how strace has it.
std::string name_of(const Case& c);
std::string name_of(const Injection& injection);

/// The case of that name. Throws std::invalid_argument when there is none.
Case case_of(const std::string& name);

/// The ways in which the system call may fail, the errors of the kernel's that fit it. None for calls that never fail.
std::vector<std::string> effects_of(const std::string& call);

#endif // TESTS_FAULTS_INJECTION_H
