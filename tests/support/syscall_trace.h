#ifndef TESTS_SUPPORT_SYSCALL_TRACE_H
#define TESTS_SUPPORT_SYSCALL_TRACE_H

#include "tests/support/starter_process.h"

#include <string>
#include <vector>

#include <sys/types.h>

/// Switch the leak checker off in a process that is to be traced: the checker is a tracer, too, and a process has only
/// one.
void make_traceable(Start_Options& options);

/// The system calls of a process under test and of those that descend from it, written down by strace.
class Syscall_Trace
{
public:
  /// `names` are the calls of interest, as strace's option "-e trace=" takes them.
  explicit Syscall_Trace(const std::string& names) : names_(names) {}

  /// Let strace trace the process that `options` describe, inside the wrapper that they may name. Its process id does
  /// not change. There may be one process for each trace.
  void apply_to(Start_Options& options) const;

  /// The calls that the process or thread `pid` made, in order, such as "setgid(12) = 0". Waits for its end, so that
  /// none is missing.
  std::vector<std::string> calls(pid_t pid) const;

private:
  std::string file() const { return dir_ / "trace"; }

  Temp_Dir dir_;
  std::string names_;
};

#endif // TESTS_SUPPORT_SYSCALL_TRACE_H
