// The companion "journal" with the journal of systemd, in a machine of its own. STARTER_STRESS_COUNT raises the numbers
// of records: 200 stands for 10,000 texts, and for a journal that stands still for 10 seconds under 50,000 records a
// second.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/journal_json.h"
#include "tests/support/scribe_texts.h"
#include "tests/support/starter_process.h"
#include "tests/support/stress.h"
#include "tests/support/systemd_fixture.h"
#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

class journal_boot : public Systemd_Fixture
{
protected:
  journal_boot() : Systemd_Fixture("test.service") {}

  // Boots the machine with a journal, and with a unit that loads the companion and what `directives` name.
  void boot(const std::string& directives, const char* echo = "lost")
  {
    machine_.dir().write("x.conf", companion_directive("journal", (std::string("-e ") + echo).c_str()) + directives);
    std::string unit = "[Unit]\nDefaultDependencies=no\n[Service]\nType=exec\nEnvironment=COMPONENT=demo\n";
    unit += test_settings() + "StandardOutput=append:" + machine_.dir() / "out" +
            "\nExecStart=" + starter_executable() + " -f " + machine_.dir() / "x.conf" + '\n';
    machine_.add_unit("test.service", unit);
    machine_.add_journal();
    ASSERT_TRUE(machine_.boot());
    ASSERT_TRUE(machine_.start_journal());
  }

  // The entries that the program has sent itself.
  std::vector<Entry_Fields> entries(const std::string& options = "") const
  {
    std::vector<Entry_Fields> found;
    for (const std::string& line : lines_of(machine_.run(
             "journalctl -o json --all --no-pager _TRANSPORT=journal -u test.service " + options + " 2>/dev/null")))
      found.push_back(parse_json_entry(line));
    return found;
  }

  // 50,000 records a second.
  static std::string flood(unsigned count)
  {
    return dynamic_directive("Scribe", "scribe", "_make_Scribe", "flood " + std::to_string(count) + " 50000");
  }

  std::string summary_of_flood() const;

  // The program floods the journal while it stands still, and writes one more record when it has gone on. Sets
  // `summary` to the line that the flood ends with.
  void flood_while_the_journal_stands(std::string& summary)
  {
    ASSERT_TRUE(machine_.succeeds("systemctl kill -s STOP journald.service"));
    ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
    summary = summary_of_flood();
    ASSERT_TRUE(machine_.succeeds("systemctl kill -s CONT journald.service"));
    ASSERT_TRUE(wait_for_entry("number 0"));
    ASSERT_TRUE(machine_.succeeds("kill -USR2 " + show("MainPID")));
    ASSERT_TRUE(wait_for_entry("Enable ACE::debug"));
  }

  bool wait_for_entry(const std::string& pattern) const
  {
    return wait_until([&] {
      return machine_.succeeds("journalctl --no-pager -u test.service -g '" + pattern + "' >/dev/null 2>&1");
    });
  }
};

static std::vector<std::string> messages_with(const std::vector<Entry_Fields>& entries, const std::string& start)
{
  std::vector<std::string> found;
  for (const Entry_Fields& fields : entries)
    if (fields.at("MESSAGE").compare(0, start.size(), start) == 0)
      found.push_back(fields.at("MESSAGE"));
  return found;
}

static std::size_t count_in(const std::string& text, const std::string& part)
{
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

TEST_F(journal_boot, reads_back_every_priority_and_every_text_byte_for_byte)
{
  const unsigned count = 50 * static_cast<unsigned>(stress_count());
  ASSERT_NO_FATAL_FAILURE(
      boot(dynamic_directive("Scribe", "scribe", "_make_Scribe", "texts " + std::to_string(count) + " 2000")));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  ASSERT_TRUE(wait_for_entry("is started"));

  unsigned seen = 0;
  unsigned errors = 0;
  for (const Entry_Fields& fields : entries()) {
    EXPECT_EQ("demo", fields.at("STARTER_COMPONENT"));
    EXPECT_EQ("starter", fields.at("SYSLOG_IDENTIFIER"));
    const std::string& message = fields.at("MESSAGE");
    if (message[0] != '#')
      continue;
    ASSERT_EQ(std::to_string(seen), message.substr(1, message.find(' ') - 1)) << log();
    EXPECT_EQ(scribe_text(seen), message);
    EXPECT_EQ(std::to_string(SCRIBE_PRIORITIES[seen % SCRIBE_PRIORITY_COUNT].number), fields.at("PRIORITY")) << seen;
    EXPECT_EQ("tests/services/scribe.cpp", fields.at("CODE_FILE"));
    errors += SCRIBE_PRIORITIES[seen % SCRIBE_PRIORITY_COUNT].number <= 3;
    ++seen;
  }
  EXPECT_EQ(count, seen);
  EXPECT_EQ("", log());
  EXPECT_EQ(errors, entries("-p err").size());
}

// What the flood says about itself, when it has ended.
std::string journal_boot::summary_of_flood() const
{
  std::string summary;
  EXPECT_TRUE(wait_until([&] { return !(summary = read_file(machine_.dir() / "out")).empty(); }));
  return summary;
}

static std::size_t lost_in(const std::vector<Entry_Fields>& entries)
{
  std::size_t lost = 0;
  for (const Entry_Fields& fields : entries)
    if (const auto field = fields.find("STARTER_LOST"); field != fields.end())
      lost += std::stoul(field->second);
  return lost;
}

TEST_F(journal_boot, counts_what_is_lost_while_the_journal_stands_still)
{
  const unsigned count = 2500 * static_cast<unsigned>(stress_count());
  ASSERT_NO_FATAL_FAILURE(boot(flood(count)));
  std::string summary;
  ASSERT_NO_FATAL_FAILURE(flood_while_the_journal_stands(summary));

  const std::string text = log();
  const std::vector<Entry_Fields> found = entries();
  const std::size_t lost = lost_in(found);
  std::cout << count << " records, " << lost << " lost, " << summary;
  EXPECT_LT(0u, lost);
  EXPECT_EQ(lost, count_in(text, "\n"));
  EXPECT_EQ(count, messages_with(found, "number ").size() + count_in(text, "number "));
}

// That the flood ends shows that no record has waited for the journal. A few may have waited for the lock of the log,
// while another thread wrote a record. Standard error might make records wait, so it gets nothing here.
TEST_F(journal_boot, lets_no_record_wait_for_a_journal_that_stands_still)
{
  const unsigned count = 2500 * static_cast<unsigned>(stress_count());
  ASSERT_NO_FATAL_FAILURE(boot(flood(count), "none"));
  std::string summary;
  ASSERT_NO_FATAL_FAILURE(flood_while_the_journal_stands(summary));

  EXPECT_EQ("", log());
  const std::vector<Entry_Fields> found = entries();
  std::cout << count << " records, " << lost_in(found) << " lost, " << summary;
  EXPECT_GT(count / 1000, std::stoul(summary.substr(std::string("flooded, ").size()))) << summary;
  // Besides the numbers, these are the summary, the system record, the banner, one about the watchdog, which the unit
  // does not have, and the record of the signal.
  EXPECT_EQ(count + 5, found.size() + lost_in(found));
}

// Standard error leads to the journal here, as it does by default, and stands still together with it.
TEST_F(journal_boot, lets_no_record_wait_for_a_standard_error_that_leads_to_the_journal)
{
  ASSERT_NO_FATAL_FAILURE(boot(flood(50000)));
  machine_.dir().write("units/test.service.d/stream.conf", "[Service]\nStandardError=journal\n");
  ASSERT_TRUE(machine_.succeeds("systemctl daemon-reload && systemctl kill -s STOP journald.service"));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  ASSERT_NE("", summary_of_flood());

  ASSERT_TRUE(machine_.succeeds("systemctl stop test.service"));
  EXPECT_EQ("success", show("Result"));
  ASSERT_TRUE(machine_.succeeds("systemctl kill -s CONT journald.service"));
}

TEST_F(journal_boot, has_the_record_of_a_fault_as_one_entry)
{
  ASSERT_NO_FATAL_FAILURE(boot(dynamic_directive("Crash", "crash", "_make_Crash", "page")));
  ASSERT_TRUE(machine_.succeeds("systemctl start test.service"));
  ASSERT_TRUE(wait_for("ActiveState", "inactive"));

  const std::vector<std::string> found =
      messages_with(entries("-p alert"), "Signal 11 (Segmentation fault) caught in ");
  ASSERT_EQ(1u, found.size());
  EXPECT_NE(std::string::npos, found[0].find("crash_here")) << found[0];
  EXPECT_EQ("\n.", found[0].substr(found[0].size() - 2));
}
