#include "starter/loop_turns.h"

#include "scrt/make_reactor.h"

#include <ace/Event_Handler.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Reactor.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

namespace
{
using Loops = std::vector<std::pair<int, unsigned long>>;

Loops loops(unsigned size = 8)
{
  std::vector<int> tids(size);
  std::vector<unsigned long> turns(size);
  const unsigned count = starter_loops(tids.data(), turns.data(), size);

  Loops found;
  for (unsigned i = 0; i < count; ++i)
    found.emplace_back(tids[i], turns[i]);
  return found;
}

/// Notes what is counted each time that it is called, and ends the loop at the fourth time.
class Witness : public ACE_Event_Handler
{
public:
  int handle_exception(ACE_HANDLE) override
  {
    seen.push_back(loops());
    if (seen.size() < 4)
      return reactor()->notify(this);
    return reactor()->end_reactor_event_loop();
  }

  std::vector<Loops> seen;
};

class loop_turns : public testing::TestWithParam<const char*>
{
protected:
  void run(Witness& witness)
  {
    const std::unique_ptr<ACE_Reactor> reactor(get_reactor_factory(GetParam(), 2)());
    witness.reactor(reactor.get());
    reactor->owner(ACE_OS::thr_self());
    (void)reactor->max_notify_iterations(1);
    ASSERT_EQ(0, reactor->notify(&witness));
    run_counted_loop(*reactor);
  }
};

std::string kind_name(const testing::TestParamInfo<const char*>& info)
{
  return info.param;
}
} // namespace

TEST_P(loop_turns, tell_the_thread_in_the_loop_and_count_each_turn_of_it)
{
  Witness witness;
  run(witness);

  ASSERT_EQ(4u, witness.seen.size());
  std::vector<unsigned long> turns;
  for (const Loops& seen : witness.seen) {
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(gettid(), seen[0].first);
    turns.push_back(seen[0].second);
  }
  EXPECT_LT(turns[0], turns[1]);
  EXPECT_LT(turns[1], turns[2]);
  EXPECT_LT(turns[2], turns[3]);
}

TEST_P(loop_turns, tell_no_thread_that_has_left_the_loop)
{
  Witness witness;
  run(witness);

  EXPECT_EQ(Loops(), loops());
}

TEST_P(loop_turns, change_when_a_thread_enters_the_loop_again)
{
  Witness first;
  run(first);
  Witness second;
  run(second);

  EXPECT_NE(first.seen.back(), second.seen.front());
}

INSTANTIATE_TEST_SUITE_P(kinds, loop_turns, testing::Values("select", "tp", "dev_poll", "priority"), kind_name);

TEST(loop_turns, tell_no_more_threads_than_there_is_room_for)
{
  unsigned count = 1;
  std::thread([&] {
    const std::unique_ptr<ACE_Reactor> reactor(get_reactor_factory("select", 1)());
    class Ender : public ACE_Event_Handler
    {
    public:
      explicit Ender(unsigned& n) : n_(n) {}
      int handle_exception(ACE_HANDLE) override
      {
        n_ = starter_loops(nullptr, nullptr, 0);
        return reactor()->end_reactor_event_loop();
      }

    private:
      unsigned& n_;
    } ender(count);
    ender.reactor(reactor.get());
    reactor->owner(ACE_OS::thr_self());
    ASSERT_EQ(0, reactor->notify(&ender));
    run_counted_loop(*reactor);
  }).join();

  EXPECT_EQ(0u, count);
}
