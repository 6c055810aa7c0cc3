#include "starter/counting_dev_poll_reactor.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Event_Handler.h>
#include <ace/Handle_Set.h>
#include <ace/Reactor.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <typeinfo>

#include <unistd.h>

namespace
{
/// The news that one event handler gives of itself; the event handler may be deleted at any moment.
struct History
{
  const std::thread::id remover = std::this_thread::get_id();
  std::atomic<bool> is_counting{false}; ///< a loop thread is about to count its reference
  std::atomic<bool> is_deleted{false};
};

/// A loop thread that counts a reference of it gives the remover all the time that it may want.
class Slowly_Counted : public ACE_Event_Handler
{
public:
  explicit Slowly_Counted(History& history) : history_(history)
  {
    reference_counting_policy().value(Reference_Counting_Policy::ENABLED);
    EXPECT_EQ(0, ::pipe(fds_));
    EXPECT_EQ(1, ::write(fds_[1], "x", 1));
  }

  ACE_HANDLE get_handle() const override { return fds_[0]; }

  Reference_Count add_reference() override
  {
    if (std::this_thread::get_id() != history_.remover) {
      History& history = history_; // outlives this object
      history.is_counting = true;
      for (int n = 0; n < 50 && !history.is_deleted; ++n)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      if (history.is_deleted) {
        ADD_FAILURE() << "The event handler is deleted while a loop thread is about to call it.";
        std::_Exit(EXIT_FAILURE); // the loop thread has no way back
      }
    }
    return ACE_Event_Handler::add_reference();
  }

  int handle_input(ACE_HANDLE) override { return 0; }

protected:
  ~Slowly_Counted() override
  {
    ::close(fds_[0]);
    ::close(fds_[1]);
    history_.is_deleted = true;
  }

private:
  History& history_;
  int fds_[2] = {-1, -1};
};

/// An event handler without a reference count.
class Uncounted : public ACE_Event_Handler
{
public:
  int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override
  {
    delete this;
    return 0;
  }
};

class Unknown : public ACE_Event_Handler
{
};

const ACE_Reactor_Mask MASK = ACE_Event_Handler::READ_MASK;

int remove_by_handle(ACE_Reactor& reactor, ACE_HANDLE handle, ACE_Event_Handler*)
{
  return reactor.remove_handler(handle, MASK);
}

int remove_by_handler(ACE_Reactor& reactor, ACE_HANDLE, ACE_Event_Handler* handler)
{
  return reactor.remove_handler(handler, MASK);
}

int remove_by_set(ACE_Reactor& reactor, ACE_HANDLE handle, ACE_Event_Handler*)
{
  ACE_Handle_Set handles;
  handles.set_bit(handle);
  return reactor.remove_handler(handles, MASK);
}

struct Removal
{
  const char* name;
  int (*remove)(ACE_Reactor&, ACE_HANDLE, ACE_Event_Handler*);
};

const Removal REMOVALS[] = {
    {"by_handle", remove_by_handle}, {"by_handler", remove_by_handler}, {"by_set", remove_by_set}};

std::ostream& operator<<(std::ostream& out, const Removal& removal)
{
  return out << removal.name;
}

std::string removal_name(const testing::TestParamInfo<Removal>& info)
{
  return info.param.name;
}

class counting_dev_poll_reactor : public testing::TestWithParam<Removal>
{
protected:
  const std::unique_ptr<ACE_Reactor> reactor_{make_counting_dev_poll_reactor()};
};
class any_dev_poll_reactor : public testing::Test
{
protected:
  void SetUp() override { ASSERT_EQ(0, ::pipe(fds_)); }

  void TearDown() override
  {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }

  int fds_[2];
  const std::unique_ptr<ACE_Reactor> reactor_{make_counting_dev_poll_reactor()};
};
} // namespace

TEST_P(counting_dev_poll_reactor, keeps_an_event_handler_that_a_loop_thread_is_about_to_count)
{
  History history;
  Slowly_Counted* const handler = new Slowly_Counted(history);
  const ACE_HANDLE handle = handler->get_handle();
  ASSERT_EQ(0, reactor_->register_handler(handler, MASK));
  handler->remove_reference(); // the reactor has the last one
  std::thread loop([this] { reactor_->handle_events(); });
  while (!history.is_counting)
    std::this_thread::yield();

  EXPECT_EQ(0, GetParam().remove(*reactor_, handle, handler));

  loop.join();
  EXPECT_TRUE(history.is_deleted);
}

TEST_P(counting_dev_poll_reactor, removes_an_event_handler_while_a_loop_thread_waits_for_events)
{
  History history;
  Slowly_Counted* const handler = new Slowly_Counted(history);
  const ACE_HANDLE handle = handler->get_handle();
  char byte;
  ASSERT_EQ(1, ::read(handle, &byte, 1)); // nothing to call it for
  std::thread loop([this] {
    while (reactor_->reactor_event_loop_done() == 0)
      reactor_->handle_events();
  });
  ASSERT_EQ(0, reactor_->register_handler(handler, MASK));
  handler->remove_reference();

  EXPECT_EQ(0, GetParam().remove(*reactor_, handle, handler));
  EXPECT_TRUE(history.is_deleted);

  reactor_->end_reactor_event_loop();
  loop.join();
}

INSTANTIATE_TEST_SUITE_P(removals, counting_dev_poll_reactor, testing::ValuesIn(REMOVALS), removal_name);

TEST_F(any_dev_poll_reactor, leaves_an_event_handler_without_a_count_to_its_owner)
{
  Uncounted* const handler = new Uncounted;
  ASSERT_EQ(0, reactor_->register_handler(fds_[0], handler, MASK));

  EXPECT_EQ(0, reactor_->remove_handler(fds_[0], MASK)); // its handle_close deletes it
}

TEST_F(any_dev_poll_reactor, is_one_of_the_framework_for_services_that_ask)
{
  EXPECT_EQ(typeid(ACE_Dev_Poll_Reactor), typeid(*reactor_->implementation()));
}

TEST_F(any_dev_poll_reactor, has_all_functions_of_the_framework)
{
  ACE_Reactor_Impl& reactor = *reactor_->implementation();

  EXPECT_EQ(-1, reactor.ready_ops(fds_[0], MASK, ACE_Reactor::GET_MASK)); // which the framework leaves out
  reactor.dump();                                                         // the last one of the class
}

TEST_F(any_dev_poll_reactor, fails_for_a_descriptor_that_it_does_not_know)
{
  Unknown unknown;

  EXPECT_EQ(-1, remove_by_handle(*reactor_, fds_[0], &unknown));
  EXPECT_EQ(-1, remove_by_set(*reactor_, fds_[0], &unknown));
}
