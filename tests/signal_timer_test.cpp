#include "starter/signal_timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <pthread.h>
#include <signal.h>

namespace
{
std::atomic<int> deliveries;

void count_delivery(int)
{
  ++deliveries;
}

void wait_msec(int msec)
{
  std::this_thread::sleep_for(std::chrono::milliseconds(msec));
}

/// The signal is blocked, so that a test decides when it is delivered.
class signal_timer : public testing::Test
{
protected:
  void SetUp() override
  {
    deliveries = 0;
    struct sigaction action = {};
    action.sa_handler = count_delivery;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGUSR1);
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &signal_, nullptr));
  }

  void TearDown() override { deliver(); }

  bool is_pending() const
  {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGUSR1) == 1;
  }

  /// Time enough for a timer of one millisecond.
  bool wait_until_pending() const
  {
    for (int n = 0; n < 5000 && !is_pending(); ++n)
      wait_msec(1);
    return is_pending();
  }

  int deliver()
  {
    pthread_sigmask(SIG_UNBLOCK, &signal_, nullptr);
    pthread_sigmask(SIG_BLOCK, &signal_, nullptr);
    return deliveries;
  }

  Signal_Timer timer_{SIGUSR1};

private:
  sigset_t signal_;
};
} // namespace

TEST_F(signal_timer, sends_its_signal_once)
{
  timer_.start(1);

  ASSERT_TRUE(wait_until_pending());
  EXPECT_EQ(1, deliver());
  EXPECT_FALSE(is_pending());
}

TEST_F(signal_timer, tells_once_for_each_start_that_a_delivery_is_its_own)
{
  for (int n = 0; n < 2; ++n) {
    timer_.start(1);
    ASSERT_TRUE(wait_until_pending());
    deliver();

    EXPECT_TRUE(timer_.has_rung());
    EXPECT_FALSE(timer_.has_rung());
  }
}

TEST_F(signal_timer, has_not_rung_before_its_time_or_without_a_start)
{
  EXPECT_FALSE(timer_.has_rung());
  timer_.start(60000);
  raise(SIGUSR1);

  EXPECT_EQ(1, deliver());
  EXPECT_FALSE(timer_.has_rung());
}

TEST_F(signal_timer, begins_again_when_it_is_started_again)
{
  timer_.start(60000);
  timer_.start(1);

  EXPECT_TRUE(wait_until_pending());
}

TEST_F(signal_timer, sends_nothing_after_it_was_stopped)
{
  timer_.start(20);
  timer_.stop();

  wait_msec(60);
  EXPECT_FALSE(is_pending());
  EXPECT_FALSE(timer_.has_rung());
}

TEST_F(signal_timer, takes_back_a_signal_that_is_not_delivered_yet)
{
  timer_.start(1);
  ASSERT_TRUE(wait_until_pending());

  timer_.stop();

  EXPECT_FALSE(is_pending());
  EXPECT_FALSE(timer_.has_rung());
}

// Two pending signals with one number are one signal.
TEST_F(signal_timer, leaves_a_signal_of_somebody_else_that_came_before_its_own)
{
  raise(SIGUSR1);
  timer_.start(1);
  wait_msec(20);

  timer_.stop();

  EXPECT_TRUE(is_pending());
}

TEST_F(signal_timer, leaves_a_signal_of_somebody_else_when_it_was_never_started)
{
  raise(SIGUSR1);

  timer_.stop();

  EXPECT_TRUE(is_pending());
}

TEST_F(signal_timer, keeps_the_signal_mask_when_it_is_stopped)
{
  timer_.start(60000);
  timer_.stop();

  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(1, sigismember(&mask, SIGUSR1));
  EXPECT_EQ(0, sigismember(&mask, SIGUSR2));
}
