#include "tests/support/starter_process.h"

#include <gtest/gtest.h>

#include <signal.h>

TEST(starter_process, ends_with_status_0_on_sigterm)
{
  Starter_Process starter({"--reactor", "tp", "--threads", "2"}, probed());
  ASSERT_TRUE(starter.wait_for_threads(3)) << starter.log();

  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  for (auto& r : starter.records())
    std::cerr << r;
}
