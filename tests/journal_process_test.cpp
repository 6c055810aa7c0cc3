// The companion "journal" in the program, with a socket of the test in place of systemd's journal. journal_boot_test
// has the real one.

#include "tests/support/companions.h"
#include "tests/support/fake_journal.h"
#include "tests/support/loops.h"
#include "tests/support/scribe_texts.h"
#include "tests/support/stress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <signal.h>

using testing::Contains;
using testing::Pair;

namespace
{
class journal : public testing::Test
{
protected:
  // The directive that has records sent to path().
  std::string directive(const std::string& arguments = "") const
  {
    return companion_directive("journal", ("-s " + path() + ' ' + arguments).c_str());
  }

  // The arguments that load the companion, and after it what `directives` name.
  std::vector<std::string> loaded_before(const std::string& directives, std::vector<std::string> args = {}) const
  {
    args.insert(args.end(), {"-f", dir_.write("x.conf", directive() + directives)});
    return args;
  }

  static std::string scribe(const std::string& what)
  {
    return dynamic_directive("Scribe", "scribe", "_make_Scribe", what);
  }

  std::string path() const { return dir_ / "socket"; }

  static void end(Starter_Process& starter)
  {
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();
  }

  Temp_Dir dir_;
};

const std::string& message_of(const Entry_Fields& fields)
{
  return fields.at("MESSAGE");
}
} // namespace

// ---- Entries

TEST_F(journal, gets_an_entry_with_all_fields_for_a_record)
{
  Fake_Journal sink(path());
  Start_Options options;
  options.env["COMPONENT"] = "demo";
  Starter_Process starter(loaded_before(scribe("texts 1")), options);
  ASSERT_TRUE(sink.wait_for("#0 ")) << starter.log();

  Entry_Fields fields = sink.entries_with("#0 ").at(0);
  EXPECT_NE("0", fields["CODE_LINE"]);
  EXPECT_LE(1u, fields.erase("CODE_LINE"));
  EXPECT_EQ((Entry_Fields{{"MESSAGE", "#0 a record."},
                          {"PRIORITY", "0"},
                          {"SYSLOG_IDENTIFIER", "starter"},
                          {"CODE_FILE", "tests/services/scribe.cpp"},
                          {"TID", std::to_string(starter.pid())},
                          {"THREAD_NAME", "starter"},
                          {"STARTER_COMPONENT", "demo"}}),
            fields);
}

TEST_F(journal, gets_no_component_where_the_environment_names_none)
{
  Fake_Journal sink(path());
  Start_Options options;
  options.env["COMPONENT"] = "";
  Starter_Process starter(loaded_before(scribe("texts 1")), options);
  ASSERT_TRUE(sink.wait_for("#0 ")) << starter.log();

  EXPECT_EQ(0u, sink.entries_with("#0 ").at(0).count("STARTER_COMPONENT"));
}

TEST_F(journal, gets_the_number_of_the_error_for_a_failure_only)
{
  Fake_Journal sink(path());
  Starter_Process starter(loaded_before(scribe("failure")));
  ASSERT_TRUE(sink.wait_for("Failed on purpose")) << starter.log();

  EXPECT_THAT(sink.entries_with("Failed on purpose").at(0), Contains(Pair("ERRNO", std::to_string(ENOENT))));
  EXPECT_EQ(0u, sink.entries_with("No failure, errno=2").at(0).count("ERRNO"));
}

// More records than the system lets wait for the journal come at once here, so that some may go to standard error.
TEST_F(journal, gets_every_priority_and_every_text_byte_for_byte)
{
  Fake_Journal sink(path());
  const unsigned count = 30 * static_cast<unsigned>(stress_count());
  Starter_Process starter(loaded_before(scribe("texts " + std::to_string(count))));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  end(starter);

  std::set<unsigned> seen;
  std::set<unsigned> kinds;
  for (const Entry_Fields& fields : sink.entries_with("#")) {
    const unsigned i = static_cast<unsigned>(std::stoul(message_of(fields).substr(1)));
    EXPECT_EQ(scribe_text(i), message_of(fields));
    EXPECT_EQ(std::to_string(SCRIBE_PRIORITIES[i % SCRIBE_PRIORITY_COUNT].number), fields.at("PRIORITY")) << i;
    EXPECT_TRUE(seen.insert(i).second) << "twice: " << i;
    kinds.insert(i % 7);
  }
  EXPECT_EQ(7u, kinds.size());
  for (unsigned i = 0; i < count; ++i)
    EXPECT_EQ(seen.count(i) != 0 ? 0u : 1u, starter.count(scribe_text(i) + '\n')) << i;
}

TEST_F(journal, gets_a_record_that_is_too_large_for_a_message_in_a_sealed_file)
{
  for (const std::size_t size : {std::size_t{100}, std::size_t{10000000}}) {
    SCOPED_TRACE(size);
    Fake_Journal sink(path());
    Starter_Process starter(loaded_before(scribe("large " + std::to_string(size))));
    ASSERT_TRUE(sink.wait_for("xxx")) << starter.log().size();

    EXPECT_EQ(std::string(size, 'x'), message_of(sink.entries_with("xxx").at(0)));
    EXPECT_EQ(size > 1000000 ? 1u : 0u, sink.files());
  }
}

// ---- All threads

TEST_F(journal, gets_the_records_of_threads_that_were_there_before)
{
  Fake_Journal sink(path());
  Starter_Process starter({"-f", dir_.write("x.conf", scribe("thread 10000") + directive())});
  ASSERT_TRUE(sink.wait_for("number ", 3)) << starter.log();

  const Entry_Fields fields = sink.entries_with("number ").at(0);
  EXPECT_EQ("scribe", fields.at("THREAD_NAME"));
  EXPECT_NE(std::to_string(starter.pid()), fields.at("TID"));
}

TEST_F(journal, gets_the_records_of_loop_threads_and_of_signal_handlers)
{
  Fake_Journal sink(path());
  Starter_Process starter(loaded_before(dynamic_directive("Closer", "crash", "_make_Crash", "none"),
                                        {"--reactor", "tp", "--threads", "3"}));
  ASSERT_TRUE(sink.wait_for("tessarin3")) << starter.log();
  ASSERT_TRUE(starter.wait_for_threads(4));

  starter.send_to_thread(starter.threads().back(), SIGUSR2);
  ASSERT_TRUE(sink.wait_for("Enable ACE::debug.")) << starter.log();
  EXPECT_EQ(std::to_string(starter.threads().back()), sink.entries_with("Enable ACE::debug.").at(0).at("TID"));

  end(starter);
  ASSERT_EQ(1u, sink.entries_with("Signal 15 (Terminated) caught in [starter].").size()) << starter.log();
}

// ---- Standard error

TEST_F(journal, leaves_to_standard_error_what_the_argument_says)
{
  const std::tuple<const char*, unsigned, unsigned> cases[] = {
      {"", 0, 1}, {"-e lost", 0, 1}, {"-e all", 1, 1}, {"-e none", 0, 0}};

  for (const auto& [arguments, with_journal, without] : cases) {
    SCOPED_TRACE(arguments);
    const std::vector<std::string> args{"-f", dir_.write("x.conf", directive(arguments) + scribe("texts 1"))};
    {
      Fake_Journal sink(path());
      Starter_Process starter(args);
      ASSERT_TRUE(sink.wait_for("tessarin3")) << starter.log();
      EXPECT_EQ(with_journal, starter.count("#0 a record.\n")) << starter.log();
      EXPECT_EQ(1u, sink.entries_with("#0 a record.").size());
    }
    Starter_Process starter(args);
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_EQ(without, starter.count("#0 a record.\n")) << starter.log();
  }
}

TEST_F(journal, leaves_records_on_standard_error_as_they_are)
{
  Starter_Process starter(loaded_before(scribe("texts 7")));
  ASSERT_TRUE(starter.wait_for_record("is started.\n")) << starter.log();

  std::string expected;
  for (unsigned i = 0; i < 7; ++i)
    expected += scribe_text(i) + '\n';
  EXPECT_EQ(0u, starter.log().find(expected)) << starter.log();
}

// ---- Lost records

TEST_F(journal, is_told_how_many_records_were_lost_while_it_was_away)
{
  Starter_Process starter(loaded_before(scribe("texts 4")));
  ASSERT_TRUE(starter.wait_for_record("is started.\n")) << starter.log();

  Fake_Journal sink(path());
  starter.send(SIGUSR2);
  ASSERT_TRUE(sink.wait_for("Enable ACE::debug.")) << starter.log();
  starter.send(SIGUSR2);
  ASSERT_TRUE(sink.wait_for("Disable ACE::debug.")) << starter.log();

  // Those of the scribe, the system record and the banner.
  EXPECT_EQ("6", sink.entries_with("Enable").at(0).at("STARTER_LOST")) << starter.log();
  EXPECT_EQ(0u, sink.entries_with("Disable").at(0).count("STARTER_LOST"));
}

TEST_F(journal, is_told_how_many_records_were_lost_while_it_was_full)
{
  const unsigned count = 200 * static_cast<unsigned>(stress_count());
  Fake_Journal sink(path(), true);
  Starter_Process starter(loaded_before(scribe("flood " + std::to_string(count) + " 50000")));
  ASSERT_TRUE(starter.wait_for_record("flooded, ")) << starter.log(); // the journal has been full for long

  const std::size_t received = sink.entries().size();
  starter.send(SIGUSR2);
  ASSERT_TRUE(sink.wait_for("Enable ACE::debug.")) << starter.log();
  EXPECT_LT(0u, sink.lost());
  EXPECT_EQ(received + 1, sink.entries().size());
  EXPECT_EQ(count, sink.entries_with("number ").size() + starter.count("number "));
  EXPECT_EQ(sink.lost(), starter.count("\n")) << "those on standard error are those that were lost";
  end(starter);
}

TEST_F(journal, tells_at_the_end_what_no_entry_has_told)
{
  Starter_Process starter(loaded_before(scribe("texts 1")));
  ASSERT_TRUE(starter.wait_for_record("is started.\n")) << starter.log();
  end(starter);

  // The record of the scribe, the system record, the banner and the record of the signal.
  EXPECT_EQ(1u, starter.count("The journal did not get 4 records\n")) << starter.log();
}

// ---- Reload and end

// The numbers in the entries and on standard error.
static std::multiset<long> numbers(Fake_Journal& sink, const std::string& log)
{
  std::multiset<long> found;
  for (const Entry_Fields& fields : sink.entries_with("number "))
    found.insert(scribe_number(message_of(fields)));
  for (std::size_t at = log.find("number "); at != std::string::npos; at = log.find("number ", at + 1))
    found.insert(scribe_number(log.substr(at, log.find('\n', at) - at)));
  return found;
}

TEST_F(journal, loses_and_repeats_no_record_over_reloads)
{
  for (const Loop& loop : LOOPS) {
    if (loop.name != std::string("default") && loop.name != std::string("tp_2"))
      continue;
    SCOPED_TRACE(loop.name);
    Fake_Journal sink(path());
    // The scribe is reloaded before the companion, and is at work while that ends and begins.
    std::vector<std::string> args = loop.args;
    args.insert(args.end(), {"-f", dir_.write("x.conf", scribe("thread 50000") + directive() +
                                                            dynamic_directive("Talker", "talker", "_make_Talker"))});
    Starter_Process starter(args);
    // The scribe writes more than the socket holds, so that any record may be on standard error.
    const auto wait_for = [&](const std::string& text, unsigned count) {
      return starter.wait_until([&] { return sink.entries_with(text).size() + starter.count(text) >= count; });
    };
    ASSERT_TRUE(wait_for("tessarin3", 1)) << starter.log();

    for (int i = 0; i < stress_count(); ++i) {
      ASSERT_TRUE(loop.threads == 1 || starter.wait_for_event_loop());
      starter.send(SIGHUP);
      ASSERT_TRUE(wait_for("talker init.", static_cast<unsigned>(i) + 2)) << starter.log();
    }
    end(starter);

    const std::multiset<long> found = numbers(sink, starter.log());
    ASSERT_LT(3u, found.size());
    std::multiset<long> expected;
    for (long i = 0; i < static_cast<long>(found.size()); ++i)
      expected.insert(i);
    EXPECT_EQ(expected, found);
  }
}

TEST_F(journal, gives_standard_error_back_when_it_is_removed)
{
  Fake_Journal sink(path());
  Starter_Process starter({"-f", dir_.write("x.conf", directive() + scribe("texts 1"))});
  ASSERT_TRUE(sink.wait_for("tessarin3")) << starter.log();
  EXPECT_EQ("", starter.log());

  (void)dir_.write("x.conf", "remove Journal\n" + scribe("texts 2"));
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record(scribe_text(1) + '\n')) << starter.log();
  EXPECT_EQ(1u, sink.entries_with("Signal 1").size());
  EXPECT_EQ(1u, sink.entries_with("#").size());

  end(starter);
  EXPECT_EQ(1u, starter.count("Signal 15 (Terminated) caught in [starter].\n")) << starter.log();
}

TEST_F(journal, takes_its_arguments_anew_at_a_reload_and_keeps_the_number_of_lost_records)
{
  Starter_Process starter({"-f", dir_.write("x.conf", directive() + scribe("texts 1"))});
  ASSERT_TRUE(starter.wait_for_record("is started.\n")) << starter.log();

  const std::string other = dir_ / "other";
  Fake_Journal sink(other);
  (void)dir_.write("x.conf", companion_directive("journal", ("-s " + other).c_str()));
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("The journal did not get 4 records\n")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop());
  starter.send(SIGUSR2);
  ASSERT_TRUE(sink.wait_for("Enable ACE::debug.")) << starter.log();
  EXPECT_EQ("5", sink.entries().at(0).at("STARTER_LOST")) << "the record of the four is the fifth";
}

TEST_F(journal, ends_with_a_service_that_still_writes)
{
  for (int i = 0; i < stress_count(); ++i) {
    SCOPED_TRACE(i);
    Fake_Journal sink(path());
    Starter_Process starter({"-f", dir_.write("x.conf", scribe("thread 10000") + directive())});
    ASSERT_TRUE(sink.wait_for("number ")) << starter.log();
    end(starter);
  }
}

// ---- Faults

TEST_F(journal, gets_the_record_of_a_fault_with_its_trace_as_one_entry)
{
  for (const char* const kind : {"select", "tp"}) {
    SCOPED_TRACE(kind);
    Fake_Journal sink(path());
    Starter_Process starter(loaded_before(dynamic_directive("Crash", "crash", "_make_Crash", "page"),
                                          {"--reactor", kind, "--threads", kind[0] == 't' ? "4" : "1"}));
    EXPECT_EQ(0, starter.wait_status()) << starter.log();

    const std::vector<Entry_Fields> found = sink.entries_with("Signal 11 (Segmentation fault) caught in [starter], ");
    ASSERT_EQ(1u, found.size()) << starter.log();
    EXPECT_EQ("1", found[0].at("PRIORITY"));
    EXPECT_NE(std::string::npos, message_of(found[0]).find("crash_here")) << message_of(found[0]);
    EXPECT_EQ("\n.", message_of(found[0]).substr(message_of(found[0]).size() - 2));
    EXPECT_EQ(0u, starter.count("the back trace:")) << starter.log();
  }
}

// In a pool the record has no trace, which would wait for the allocator.
TEST_F(journal, gets_the_record_of_a_fault_inside_the_allocator)
{
  for (const char* const kind : {"select", "tp"}) {
    SCOPED_TRACE(kind);
    Fake_Journal sink(path());
    Starter_Process starter(loaded_before(dynamic_directive("Crash", "crash", "_make_Crash", "heap"),
                                          {"--reactor", kind, "--threads", kind[0] == 't' ? "4" : "1"}));
    EXPECT_EQ(0, starter.wait_status()) << starter.log();

    const std::vector<Entry_Fields> found = sink.entries_with("Signal 6 (Aborted) caught in [starter], ");
    ASSERT_EQ(1u, found.size()) << starter.log();
    const std::string& text = message_of(found[0]);
    EXPECT_EQ(0u, text.find("Signal 6 (Aborted) caught in [starter], the back trace:\n")) << text;
    EXPECT_EQ("\n.", text.substr(text.size() - 2)) << text;
    EXPECT_EQ("1", found[0].at("PRIORITY"));
  }
}

// ---- Arguments

TEST_F(journal, says_what_is_wrong_with_its_arguments_and_is_not_loaded)
{
  const std::string long_path = '/' + std::string(200, 'x');
  const std::tuple<std::string, std::string> cases[] = {
      {"-x", "Failed to start the journal: there is no option -x\n"},
      {"-e", "Failed to start the journal: -e needs a value\n"},
      {"-s", "Failed to start the journal: -s needs a value\n"},
      {"-e some", "Failed to start the journal: -e takes lost, all or none, and not 'some'\n"},
      {"fast", "Failed to start the journal: 'fast' is no option\n"},
      {"-e all fast", "Failed to start the journal: 'fast' is no option\n"},
      {"-s " + long_path, "Failed to start the journal at " + long_path + ", errno=36, File name too long\n"},
  };

  for (const auto& [arguments, text] : cases) {
    SCOPED_TRACE(arguments);
    Starter_Process starter({"-f", dir_.write("x.conf", companion_directive("journal", arguments.c_str()))}, probed());
    ASSERT_TRUE(starter.wait_for_record("is started.\n")) << starter.log();
    end(starter);

    unsigned count = 0;
    for (const Record& record : starter.records())
      if (record.file.compare(0, 11, "companions/") == 0) {
        EXPECT_EQ(text, record.text);
        EXPECT_EQ(LM_ERROR, record.priority);
        EXPECT_EQ(-1, record.status);
        ++count;
      }
    EXPECT_EQ(1u, count) << starter.log();
    EXPECT_EQ(1u, starter.count(text)) << starter.log();
  }
}

TEST_F(journal, is_loaded_once)
{
  Fake_Journal sink(path());
  const std::string second = "dynamic Other" + directive().substr(directive().rfind("dynamic Journal") + 15);
  Starter_Process starter(loaded_before(second));
  ASSERT_TRUE(sink.wait_for("tessarin3")) << starter.log();
  ASSERT_EQ(1u,
            sink.entries_with("Failed to start the journal at " + path() + ", errno=114, Operation already in progress")
                .size());

  starter.send(SIGUSR2);
  EXPECT_TRUE(sink.wait_for("Enable ACE::debug.")) << starter.log();
  end(starter);
}
