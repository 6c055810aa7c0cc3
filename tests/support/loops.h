#ifndef TESTS_SUPPORT_LOOPS_H
#define TESTS_SUPPORT_LOOPS_H

#include "tests/support/starter_process.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

/// A kind of event loop, and the options that choose it.
struct Loop
{
  const char* name;
  std::vector<std::string> args;
  unsigned threads; ///< those of the process while the loop runs; of a select or priority pool only one stays
};

inline const Loop LOOPS[] = {
    {"default", {}, 1},
    {"select", {"--reactor", "select"}, 1},
    {"select_1", {"--reactor", "select", "--threads", "1"}, 1},
    {"select_2", {"--reactor", "select", "--threads", "2"}, 2},
    {"select_4", {"--reactor", "select", "--threads", "4"}, 2},
    {"tp_2", {"--reactor", "tp", "--threads", "2"}, 3},
    {"tp_4", {"--reactor", "tp", "--threads", "4"}, 5},
    {"dev_poll", {"--reactor", "dev_poll"}, 1},
    {"dev_poll_1", {"--reactor", "dev_poll", "--threads", "1"}, 1},
    {"dev_poll_2", {"--reactor", "dev_poll", "--threads", "2"}, 3},
    {"dev_poll_4", {"--reactor", "dev_poll", "--threads", "4"}, 5},
    {"priority", {"--reactor", "priority"}, 1},
    {"priority_1", {"--reactor", "priority", "--threads", "1"}, 1},
    {"priority_2", {"--reactor", "priority", "--threads", "2"}, 2},
    {"priority_4", {"--reactor", "priority", "--threads", "4"}, 2},
};

inline std::ostream& operator<<(std::ostream& out, const Loop& loop)
{
  return out << loop.name;
}

/// The name of a test that runs for each loop.
inline std::string loop_name(const testing::TestParamInfo<Loop>& info)
{
  return info.param.name;
}

/// The seven signals that are faults.
extern const std::vector<int> FAULTS;

/// The arguments that load the service of the library `target`, whose factory is `factory`, besides `args`.
std::vector<std::string> with_service(std::vector<std::string> args, const std::string& target,
                                      const std::string& factory, const std::string& params = "");

/// Wait until the process has installed its signal dispositions. False when it ends before that.
bool wait_for_dispositions(Starter_Process& starter);

/// Wait until the process says that it is started and has the threads of `loop`.
bool wait_for_loop(Starter_Process& starter, const Loop& loop);

#endif // TESTS_SUPPORT_LOOPS_H
