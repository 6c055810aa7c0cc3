#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <functional>
#include <string>

#include <sys/types.h>

/// A process forked from the test, which computes a text. The destructor waits for its end.
class Child
{
public:
  /// Run `work` in the process, as the account nobody if `unprivileged` and started by root.
  explicit Child(const std::function<std::string()>& work, bool unprivileged = false);
  ~Child();

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The text that `work` returned; empty when the process failed. Waits for its end. May be called once.
  std::string result();

private:
  pid_t pid_;
  int fd_;
};

#endif // TESTS_SUPPORT_CHILD_H
