#include "tests/support/loops.h"
#include "tests/support/signal_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include <signal.h>

static const char SOURCE[] = "starter/starter.cpp";

// ---- Faults of code that really runs

TEST(fault, of_a_service_names_its_frames)
{
  const std::tuple<const char*, int> cases[] = {{"null", SIGSEGV}, {"division", SIGFPE}, {"instruction", SIGILL},
                                                {"bus", SIGBUS},   {"abort", SIGABRT},   {"alarm", SIGALRM},
                                                {"cpu", SIGXCPU}};

  for (const char* const kind : {"select", "dev_poll", "tp"})
    for (const auto& [how, signo] : cases) {
      SCOPED_TRACE(testing::Message() << kind << ' ' << how);
      Starter_Process starter(
          with_service({"--reactor", kind, "--threads", kind[0] == 't' ? "4" : "1"}, "crash", "_make_Crash", how));

      EXPECT_EQ(0, starter.wait_status()) << starter.log();
      EXPECT_EQ(1u, starter.count("the back trace:")) << starter.log();
      EXPECT_EQ(1u, starter.count(caught_in(signo, "starter") + ", the back trace:\n")) << starter.log();
      EXPECT_NE(0u, starter.count("crash_here")) << starter.log();
    }
}

// The back trace allocates memory, and therefore waits for the lock of the allocator for ever.
TEST(fault, inside_the_allocator_ends_the_process_too)
{
  for (const char* const kind : {"select", "tp"}) {
    SCOPED_TRACE(kind);
    Starter_Process starter(
        with_service({"--reactor", kind, "--threads", kind[0] == 't' ? "4" : "1"}, "crash", "_make_Crash", "heap"));

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count(caught_in(SIGABRT, "starter") + ", the back trace:\n")) << starter.log();
  }
}

TEST(fault, while_services_load_needs_no_reactor)
{
  Starter_Process starter(with_service({}, "raiser", "_make_Raiser", "init 11"));

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count(caught_in(SIGSEGV, "starter") + ", the back trace:\n")) << starter.log();
}

// When there is another thread, the main thread waits for the allocator, too, and the alarm interrupts it there.
TEST(fault, inside_the_allocator_is_logged_by_a_single_loop_itself)
{
  std::vector<std::string> args = with_service({"--reactor", "select"}, "named", "_make_Named", "beside");
  Starter_Process starter(with_service(args, "crash", "_make_Crash", "heap"), probed());

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  const std::vector<Logged> found = records_with(starter, "the back trace:");
  ASSERT_EQ(1u, found.size()) << starter.log();
  EXPECT_EQ(alert(caught_in(SIGABRT, "starter") + ", the back trace:\n.\n").in(SOURCE), found[0]);
}

// The main thread, which the alarm interrupts, leaves the record to the thread that has faulted.
TEST(fault, inside_the_allocator_is_logged_by_the_faulting_thread_of_a_pool)
{
  Starter_Process starter(with_service({"--reactor", "tp", "--threads", "4"}, "crash", "_make_Crash", "heap"),
                          probed());

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  const std::vector<Logged> found = records_with(starter, "the back trace:");
  ASSERT_EQ(1u, found.size()) << starter.log();
  EXPECT_EQ(alert(caught_in(SIGABRT, "starter") + ", the back trace:\n.\n").in(SOURCE), found[0]);
}

// The back trace waits for the allocator, and no other thread gets at the log.
TEST(fault, inside_the_allocator_is_recorded_even_while_its_thread_holds_the_log)
{
  Starter_Process starter(with_service({"--reactor", "tp", "--threads", "4"}, "crash", "_make_Crash", "log"));

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count(caught_in(SIGABRT, "starter") + ", the back trace:\n.\n")) << starter.log();
}

TEST(fault, runs_exit_handlers_and_static_destructors)
{
  Start_Options options;
  options.preload = {preload_library("exit_witness")};

  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    Starter_Process starter(with_service(loop.args, "talker", "_make_Talker"), options);
    ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();
    ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();

    starter.send(SIGSEGV);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("exit handler ran")) << starter.log();
    EXPECT_EQ(1u, starter.count("static destructor ran")) << starter.log();
  }
}

// ---- Faults of faults

// The back trace and the record are what faults here, each in its turn.
TEST(fault, that_cannot_be_logged_is_written_to_standard_error)
{
  Start_Options options;
  options.preload = {preload_library("fault_in_log")};

  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    Starter_Process starter(with_service(loop.args, "crash", "_make_Crash", "null"), options);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count(caught_in(SIGSEGV, "starter") + ", the back trace:\n.\n")) << starter.log();
  }
}

TEST(fault, without_any_memory_left_is_recorded)
{
  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    Starter_Process starter(with_service(loop.args, "crash", "_make_Crash", "memory"));

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_LE(1u, starter.count(caught_in(SIGSEGV, "starter") + ", the back trace:\n")) << starter.log();
  }
}

TEST(fault, in_exit_handlers_is_recorded_each_time_and_leaves_their_turn_to_the_other_exit_handlers)
{
  Start_Options options = probed();
  options.preload = {preload_library("fault_in_exit"), preload_library("exit_witness")};

  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    Starter_Process starter(with_service(loop.args, "crash", "_make_Crash", "abort"), options);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count(caught_in(SIGABRT, "starter") + ", the back trace:\n")) << starter.log();
    EXPECT_EQ(2u, starter.count(caught_in(SIGSEGV, "starter") + ", the back trace:\n.\n")) << starter.log();
    for (const char* const text : {"first exit handler ran", "second exit handler ran", "third exit handler ran",
                                   "\nexit handler ran", "static destructor ran"})
      EXPECT_EQ(1u, starter.count(text)) << text << '\n' << starter.log();
  }
}

// ---- What the exit takes down

// The threads of a pool still run the loop while the exit handlers run. The main thread of a single loop does not.
TEST(fault, has_the_reactor_close_its_handlers_unless_a_pool_still_runs_the_loop)
{
  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    const std::vector<std::string> args = with_service(loop.args, "closer", "_make_Closer");
    Starter_Process starter(args);
    ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    starter.send(SIGSEGV);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(loop.threads == 1 ? 1u : 0u, starter.count("The handler is closed.")) << starter.log();
  }
}

// The first thread of the pool runs the loop by then.
TEST(fault, while_the_threads_of_a_pool_are_made_keeps_the_reactor_for_those_that_are_there)
{
  for (const char* const type : {"select", "tp", "dev_poll", "priority"}) {
    SCOPED_TRACE(type);
    Start_Options options;
    options.preload = {preload_library("fault_in_spawn")};
    Starter_Process starter(with_service({"--reactor", type, "--threads", "4"}, "closer", "_make_Closer"), options);

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("Signal 11 (Segmentation fault) caught in [starter], the back trace:"))
        << starter.log();
    EXPECT_EQ(1u, starter.count("the back trace:")) << starter.log();
    EXPECT_EQ(0u, starter.count("The handler is closed.")) << starter.log();
  }
}
