#include "starter/main_call.h"

#include "starter/host_phase.h"
#include "starter/loop_control.h"

#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>

#include <gtest/gtest.h>

#include <memory>

namespace
{
// The process-wide reactor is one that the loop control knows, and the calling thread the main one.
class main_call : public testing::Test
{
protected:
  main_call() : former_(ACE_Reactor::instance(new ACE_Reactor(new ACE_Select_Reactor, true), true))
  {
    set_host_phase(LOADING);
  }

  ~main_call() override
  {
    (void)starter_call(nullptr, nullptr);
    set_host_phase(NOT_STARTED);
  }

  static void count(void* counter) { ++*static_cast<int*>(counter); }

private:
  const std::unique_ptr<ACE_Reactor> former_;
};

Host_Phase phase_in_call;

void note_phase(void*)
{
  phase_in_call = get_host_phase();
}
} // namespace

TEST_F(main_call, is_made_once_when_the_main_thread_comes_to_it)
{
  int calls = 0;
  EXPECT_EQ(1, starter_call(count, &calls));
  EXPECT_EQ(0, calls);

  set_host_phase(LOOP);
  EXPECT_TRUE(serve_main_call());
  EXPECT_EQ(1, calls);
  EXPECT_FALSE(serve_main_call());
  EXPECT_EQ(1, calls);
}

TEST_F(main_call, is_refused_while_another_one_waits)
{
  int calls = 0;
  EXPECT_EQ(1, starter_call(count, &calls));
  EXPECT_EQ(0, starter_call(count, &calls));
}

TEST_F(main_call, is_not_made_after_it_was_withdrawn)
{
  int calls = 0;
  EXPECT_EQ(0, starter_call(nullptr, nullptr));
  EXPECT_EQ(1, starter_call(count, &calls));
  EXPECT_EQ(1, starter_call(nullptr, nullptr));

  set_host_phase(LOOP);
  EXPECT_FALSE(serve_main_call());
  EXPECT_EQ(0, calls);
}

TEST_F(main_call, is_not_made_after_the_end_of_the_loop)
{
  int calls = 0;
  EXPECT_EQ(1, starter_call(count, &calls));
  end_event_loop();

  set_host_phase(LOOP);
  EXPECT_FALSE(serve_main_call());
  EXPECT_EQ(0, calls);
}

TEST_F(main_call, has_the_single_loop_left)
{
  int calls = 0;
  set_host_phase(LOOP);
  EXPECT_EQ(1, starter_call(count, &calls));
  EXPECT_NE(0, ACE_Reactor::instance()->reactor_event_loop_done());
  EXPECT_FALSE(is_loop_ended());

  stay_in_event_loop();
  EXPECT_EQ(0, ACE_Reactor::instance()->reactor_event_loop_done());
}

TEST_F(main_call, ends_the_rest_of_a_main_thread_with_a_pool_and_leaves_the_loop_alone)
{
  int calls = 0;
  set_host_phase(POOL);
  EXPECT_EQ(1, starter_call(count, &calls));
  EXPECT_EQ(0, ACE_Reactor::instance()->reactor_event_loop_done());

  rest_main_thread(); // else the test does not end
  EXPECT_TRUE(serve_main_call());
}

TEST_F(main_call, holds_hang_ups_back_meanwhile)
{
  for (const auto& [phase, expected] : {std::pair{LOOP, LOOP_PAUSE}, std::pair{POOL, POOL_PAUSE}}) {
    set_host_phase(phase);
    EXPECT_EQ(1, starter_call(note_phase, nullptr));
    EXPECT_TRUE(serve_main_call());
    EXPECT_EQ(expected, phase_in_call);
    EXPECT_EQ(phase, get_host_phase());
  }
}
