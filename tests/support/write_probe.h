#ifndef TESTS_SUPPORT_WRITE_PROBE_H
#define TESTS_SUPPORT_WRITE_PROBE_H

/// @file
/// A program that links write_probe.cpp calls its function in place of write(2). Processes that it forks inherit what
/// is in force.

/// While an object lives, every other write, beginning with the first one, is interrupted by a signal and the others
/// write one byte.
class Slow_Writes
{
public:
  Slow_Writes();
  ~Slow_Writes();

  Slow_Writes(const Slow_Writes&) = delete;
  Slow_Writes& operator=(const Slow_Writes&) = delete;
};

/// While an object lives, every write fails with this error.
class Failing_Writes
{
public:
  explicit Failing_Writes(int error);
  ~Failing_Writes();

  Failing_Writes(const Failing_Writes&) = delete;
  Failing_Writes& operator=(const Failing_Writes&) = delete;
};

#endif // TESTS_SUPPORT_WRITE_PROBE_H
