// The notes of the executable, which this test has as the program has them, and the companions' way to read them.

#include "companions/common/program_note.h"

#include "starter/hang_up.h"
#include "starter/loop_turns.h"
#include "starter/main_call.h"
#include "starter/product_version.h"

#include <gtest/gtest.h>

TEST(program_note, leads_to_the_function_that_tells_the_loops)
{
  EXPECT_EQ(starter_loops, find_starter_loops());
}

TEST(program_note, leads_to_the_functions_that_tell_the_reloads_and_take_calls)
{
  EXPECT_EQ(starter_reloads, find_starter_reloads());
  EXPECT_EQ(starter_call, find_starter_call());
}

TEST(program_note, tells_the_version_and_the_revision)
{
  const Program_Version program = find_program_version();

  EXPECT_STREQ(STARTER_VERSION, program.version);
  EXPECT_STREQ(STARTER_REVISION, program.revision);
}
