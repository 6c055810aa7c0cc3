#ifndef TESTS_SUPPORT_HANGER_H
#define TESTS_SUPPORT_HANGER_H

#include "tests/support/companions.h"
#include "tests/support/loops.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <ostream>
#include <string>
#include <vector>

/// A way to hang: the letter that the service hanger knows it by, and the function that hangs.
struct Hang
{
  char letter;
  const char* function;
};

inline const Hang HANGS[] = {
    {'s', "hang_asleep"},           {'c', "hang_computing"}, {'m', "hang_for_a_mutex"}, {'r', "hang_in_a_read"},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which bring an allocator of their own
    {'a', "hang_in_the_allocator"},
#endif
};

inline std::ostream& operator<<(std::ostream& out, const Hang& hang)
{
  return out << hang.function;
}

/// The two FIFOs that command the service hanger.
class Hanger_Commands
{
public:
  Hanger_Commands();
  ~Hanger_Commands();

  Hanger_Commands(const Hanger_Commands&) = delete;
  Hanger_Commands& operator=(const Hanger_Commands&) = delete;

  /// The arguments of a process that has the loop `args`, the guard with the arguments `params`, the service hanger and
  /// the directives `more`.
  std::vector<std::string> make_args(std::vector<std::string> args, const std::string& params,
                                     const std::string& more = "") const;

  /// Have a callback of the process hang, and wait until it does. False when it does not.
  bool hang(Starter_Process& starter, const Hang& hang);

  /// Let the callback go on, and wait until it does. False when it does not.
  bool release(Starter_Process& starter);

  /// Have the service write the numbers of the guard, and wait until the log has the line `record` `count` times. False
  /// when it does not get there.
  bool tells(Starter_Process& starter, const std::string& record, unsigned count = 1);

private:
  Temp_Dir dir_;
  int hang_;
  int release_;
};

/// The start of a process in which each way to hang works.
Start_Options with_slow_allocator();

#endif // TESTS_SUPPORT_HANGER_H
