#include "scrt/make_reactor.h"

#include "tests/support/log_capture.h"
#include "tests/support/logged.h"
#include "tests/support/new_probe.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Priority_Reactor.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/TP_Reactor.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

using Plain_Select_Reactor = ACE_Select_Reactor_T<ACE_Reactor_Token_T<ACE_Token>>;

// Every kind with its factory, class and size.
struct Kind
{
  const char* name;
  make_reactor_t maker;
  const std::type_info* type;
  std::size_t size;
};

static const Kind kinds[] = {
    {"priority", make_reactor<ACE_Priority_Reactor>, &typeid(ACE_Priority_Reactor), sizeof(ACE_Priority_Reactor)},
    {"tp", make_reactor<ACE_TP_Reactor>, &typeid(ACE_TP_Reactor), sizeof(ACE_TP_Reactor)},
    {"select", make_reactor<Plain_Select_Reactor>, &typeid(Plain_Select_Reactor), sizeof(Plain_Select_Reactor)},
    {"dev_poll", make_reactor<ACE_Dev_Poll_Reactor>, &typeid(ACE_Dev_Poll_Reactor), sizeof(ACE_Dev_Poll_Reactor)}};

TEST(make_reactor, has_a_table_of_four_kinds_in_order)
{
  ASSERT_EQ(5U, std::size(make_reactor_table));
  for (std::size_t n = 0; n < std::size(kinds); ++n) {
    SCOPED_TRACE(kinds[n].name);
    EXPECT_STREQ(kinds[n].name, make_reactor_table[n].key);
    EXPECT_EQ(kinds[n].maker, make_reactor_table[n].value);
  }

  EXPECT_EQ(nullptr, make_reactor_table[4].key);
  EXPECT_EQ(nullptr, make_reactor_table[4].value);
}

TEST(make_reactor, answers_a_miss_in_the_table_with_its_terminator)
{
  EXPECT_EQ(&make_reactor_table[4], get_key_value_entry(make_reactor_table, "thread-pool"));
  EXPECT_EQ(&make_reactor_table[4], get_key_value_entry(make_reactor_table, nullptr));
}

TEST(make_reactor, gives_out_kinds_other_than_tp_for_any_number_of_threads)
{
  const Log_Capture log;

  for (const Kind& kind : kinds) {
    if (kind.name == std::string("tp"))
      continue;
    for (const unsigned threads : {0U, 1U, 2U, 64U, 4294967295U}) {
      SCOPED_TRACE(kind.name + std::string(" with ") + std::to_string(threads));
      EXPECT_EQ(kind.maker, get_reactor_factory(kind.name, threads));
    }
  }
  EXPECT_TRUE(log.records().empty());
}

TEST(make_reactor, gives_out_tp_for_two_threads_and_more)
{
  const Log_Capture log;

  for (const unsigned threads : {2U, 3U, 64U, 4294967295U})
    EXPECT_EQ(make_reactor<ACE_TP_Reactor>, get_reactor_factory("tp", threads)) << threads;

  EXPECT_TRUE(log.records().empty());
}

// Kept: the text of this record does not end in a newline.
TEST(make_reactor, refuses_tp_for_fewer_than_two_threads_with_a_record)
{
  for (const unsigned threads : {0U, 1U}) {
    SCOPED_TRACE(threads);
    const Log_Capture log;

    EXPECT_EQ(nullptr, get_reactor_factory("tp", threads));

    ASSERT_EQ(1U, log.records().size());
    const std::string text =
        "The number of threads (" + std::to_string(threads) + ") of thread pool reactor is less than 2";
    EXPECT_EQ(error_failed(text).in("scrt/make_reactor.cpp"), with_file(log.records()[0]));
  }
}

TEST(make_reactor, refuses_other_names_without_a_record)
{
  const Log_Capture log;

  for (const char* const name : {"", "TP", "Tp", "tp ", " tp", "t", "tpx", "thread-pool", "Select", "SELECT", "selec",
                                 "Dev_Poll", "dev-poll", "dev_poll\n", "Priority", "wfmo"}) {
    SCOPED_TRACE(name);
    for (const unsigned threads : {0U, 1U, 4U})
      EXPECT_EQ(nullptr, get_reactor_factory(name, threads));
  }
  for (const unsigned threads : {0U, 1U, 4U})
    EXPECT_EQ(nullptr, get_reactor_factory(nullptr, threads));

  EXPECT_TRUE(log.records().empty());
}

TEST(make_reactor, leaves_errno_alone_when_it_looks_for_a_factory)
{
  const Log_Capture log;

  for (const char* const name : {"tp", "select", "none"}) {
    errno = EBADF;
    (void)get_reactor_factory(name, 1); // another test looks at the result
    const int error = errno;

    EXPECT_EQ(EBADF, error) << name;
  }
}

TEST(make_reactor, creates_a_reactor_of_exactly_the_class_of_the_table)
{
  const Log_Capture log;

  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const std::unique_ptr<ACE_Reactor> reactor(kind.maker());

    ASSERT_NE(nullptr, reactor);
    const ACE_Reactor_Impl& implementation = *reactor->implementation();
    EXPECT_EQ(*kind.type, typeid(implementation)) << typeid(implementation).name();
    EXPECT_TRUE(reactor->initialized());
  }
  EXPECT_TRUE(log.records().empty());
}

TEST(make_reactor, deletes_the_implementation_with_the_reactor)
{
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const New_Recorder recorder;
    std::unique_ptr<ACE_Reactor> reactor(kind.maker());
    ASSERT_NE(nullptr, reactor);
    const Allocation& implementation = recorder.at(dynamic_cast<const void*>(reactor->implementation()));
    const Allocation& outer = recorder.at(reactor.get());
    EXPECT_EQ(kind.size, implementation.size);
    EXPECT_FALSE(implementation.deleted);
    EXPECT_FALSE(outer.deleted);

    reactor.reset();

    EXPECT_TRUE(implementation.deleted);
    EXPECT_TRUE(outer.deleted);
  }
}

// Counts the events that are dispatched to it.
class Counting_Handler : public ACE_Event_Handler
{
public:
  int handle_exception(ACE_HANDLE) override { return ++notifications, 0; }
  int handle_timeout(const ACE_Time_Value&, const void*) override { return ++timeouts, 0; }

  int notifications = 0;
  int timeouts = 0;
};

TEST(make_reactor, gives_every_kind_a_notification_pipe_and_a_timer_queue_of_its_own)
{
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    Counting_Handler handler;
    const std::unique_ptr<ACE_Reactor> reactor(kind.maker());
    ASSERT_NE(nullptr, reactor);
    reactor->owner(ACE_Thread::self());

    ASSERT_NE(nullptr, reactor->timer_queue());
    EXPECT_EQ(0, reactor->notify(&handler));
    EXPECT_NE(-1, reactor->schedule_timer(&handler, nullptr, ACE_Time_Value::zero));
    for (int n = 0; n < 100 && handler.notifications + handler.timeouts < 2; ++n) {
      ACE_Time_Value limit(1);
      (void)reactor->handle_events(limit); // the event handler counts the events
    }

    EXPECT_EQ(1, handler.notifications);
    EXPECT_EQ(1, handler.timeouts);
    reactor->cancel_timer(&handler);
  }
}

TEST(make_reactor, returns_null_when_there_is_no_memory_for_the_implementation)
{
  const Log_Capture log;

  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const New_Recorder recorder(kind.size, 1);
    errno = EBADF;
    const ACE_Reactor* const reactor = kind.maker();
    const int error = errno;

    EXPECT_EQ(nullptr, reactor);
    EXPECT_EQ(ENOMEM, error);
    EXPECT_EQ(nullptr, recorder.first(kind.size).p);
  }
  EXPECT_TRUE(log.records().empty());
}

// The number of allocations of a factory that are as large as the outer reactor. The last of them is the outer reactor.
static unsigned outer_allocation(make_reactor_t maker)
{
  const New_Recorder recorder;
  const std::unique_ptr<ACE_Reactor> reactor(maker());
  EXPECT_EQ(sizeof(ACE_Reactor), recorder.at(reactor.get()).size);
  return recorder.count(sizeof(ACE_Reactor));
}

// Some implementations leave an errno of their own when they are closed.
TEST(make_reactor, returns_null_and_deletes_the_implementation_when_there_is_no_memory_for_the_reactor)
{
  const Log_Capture log;

  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const unsigned nth = outer_allocation(kind.maker);
    const New_Recorder recorder(sizeof(ACE_Reactor), nth);
    errno = EBADF;
    const ACE_Reactor* const reactor = kind.maker();
    const int error = errno;

    EXPECT_EQ(nullptr, reactor);
    EXPECT_EQ(ENOMEM, error);
    EXPECT_NE(nullptr, recorder.first(kind.size).p);
    EXPECT_TRUE(recorder.first(kind.size).deleted);
    EXPECT_TRUE(recorder.has_failed());
  }
  EXPECT_TRUE(log.records().empty());
}

// An implementation whose destructor changes errno.
class Marking_Reactor : public ACE_TP_Reactor
{
public:
  ~Marking_Reactor() override
  {
    ++destroyed;
    errno = EOWNERDEAD;
  }

  static int destroyed;
};

int Marking_Reactor::destroyed = 0;

TEST(make_reactor, reports_missing_memory_whatever_the_implementation_leaves_in_errno)
{
  const unsigned nth = outer_allocation(make_reactor<Marking_Reactor>);
  Marking_Reactor::destroyed = 0;
  const New_Recorder recorder(sizeof(ACE_Reactor), nth);
  const ACE_Reactor* const reactor = make_reactor<Marking_Reactor>();
  const int error = errno;

  EXPECT_TRUE(recorder.has_failed());
  EXPECT_EQ(nullptr, reactor);
  EXPECT_EQ(1, Marking_Reactor::destroyed);
  EXPECT_EQ(ENOMEM, error);
}

// An implementation that cannot be constructed.
class Throwing_Reactor : public ACE_TP_Reactor
{
public:
  Throwing_Reactor() { throw std::runtime_error("no such luck"); }
};

TEST(make_reactor, lets_the_exception_of_a_constructor_through_and_frees_the_memory)
{
  const New_Recorder recorder;

  EXPECT_THROW((void)make_reactor<Throwing_Reactor>(), std::runtime_error);

  EXPECT_NE(nullptr, recorder.first(sizeof(Throwing_Reactor)).p);
  EXPECT_TRUE(recorder.first(sizeof(Throwing_Reactor)).deleted);
}
