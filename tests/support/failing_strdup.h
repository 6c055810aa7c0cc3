#ifndef TESTS_SUPPORT_FAILING_STRDUP_H
#define TESTS_SUPPORT_FAILING_STRDUP_H

/// As long as the object lives, copying a text (strdup, or ACE_OS::malloc for a wide text) fails with `error` after it
/// has succeeded `successes` times. This concerns the library of the framework, too. There may be one object at a time,
/// in a process with one thread.
class Failing_Strdup
{
public:
  explicit Failing_Strdup(int error, unsigned successes = 0);
  ~Failing_Strdup();

  Failing_Strdup(const Failing_Strdup&) = delete;
  Failing_Strdup& operator=(const Failing_Strdup&) = delete;
};

#endif // TESTS_SUPPORT_FAILING_STRDUP_H
