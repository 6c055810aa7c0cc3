// The parts of the companion "journal", in the process of the test.

#include "companions/journal/journal_backend.h"
#include "companions/journal/journal_entry.h"
#include "companions/journal/journal_socket.h"
#include "companions/journal/standard_error.h"

#include "tests/support/fake_journal.h"
#include "tests/support/temp_dir.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

static std::string content_of(Journal_Entry& entry)
{
  std::string content;
  for (std::size_t i = 0; i < entry.count(); ++i)
    content.append(static_cast<const char*>(entry.parts()[i].iov_base), entry.parts()[i].iov_len);
  EXPECT_EQ(content.size(), entry.size());
  return content;
}

// ---- Entries

TEST(journal_entry, writes_texts_with_their_length_and_numbers_as_lines)
{
  const std::string text(300, '\n');
  Journal_Entry entry;
  entry.add_text("MESSAGE", text);
  entry.add_number("PRIORITY", 7);
  entry.add_number("TID", 18446744073709551615UL);
  entry.add_text("NAME", "");

  EXPECT_EQ("MESSAGE\n" + std::string("\x2c\x01\0\0\0\0\0\0", 8) + text +
                "\nPRIORITY=7\nTID=18446744073709551615\nNAME\n" + std::string(8, '\0') + '\n',
            content_of(entry));
}

TEST(journal_entry, leaves_out_fields_that_it_has_no_room_for)
{
  Journal_Entry full;
  Journal_Entry more;
  for (int i = 0; i < Journal_Entry::MAX_FIELDS + 3; ++i) {
    more.add_text("TEXT", "x");
    if (i < Journal_Entry::MAX_FIELDS)
      full.add_text("TEXT", "x");
  }

  EXPECT_EQ(content_of(full), content_of(more));
}

TEST(journal_socket, takes_paths_that_an_address_has_room_for)
{
  Journal_Socket socket;
  EXPECT_EQ(0, socket.open(std::string(107, 'x').c_str()));
  socket.close();
  EXPECT_EQ(-1, socket.open(std::string(108, 'x').c_str()));
  EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST(journal_socket, finds_a_journal_that_comes_back_at_the_same_path)
{
  Temp_Dir dir;
  Journal_Socket socket;
  ASSERT_EQ(0, socket.open((dir / "socket").c_str()));
  Journal_Entry entry;
  entry.add_text("MESSAGE", "x");

  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(socket.send(entry));
    Fake_Journal sink(dir / "socket");
    EXPECT_TRUE(socket.send(entry));
    EXPECT_TRUE(sink.wait_for("x"));
  }
}

// ---- Standard error

// Has standard error lead elsewhere while it lives.
class Diverted_Error
{
public:
  explicit Diverted_Error(int fd) : former_(::dup(STDERR_FILENO)) { ::dup2(fd, STDERR_FILENO); }
  ~Diverted_Error()
  {
    ::dup2(former_, STDERR_FILENO);
    ::close(former_);
  }

  Diverted_Error(const Diverted_Error&) = delete;
  Diverted_Error& operator=(const Diverted_Error&) = delete;

private:
  const int former_;
};

// A test that waits for the socket never ends.
TEST(standard_error, is_not_waited_for_if_it_is_a_socket)
{
  int fds[2];
  ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
  ACE_Log_Record record(LM_INFO, 0, 0);
  record.msg_data("a record\n");
  {
    const Diverted_Error diverted(fds[1]);
    for (int i = 0; i < 100000; ++i)
      write_standard_error(record);
  }

  char text[10] = "";
  EXPECT_EQ(9, ::read(fds[0], text, 9));
  EXPECT_STREQ("a record\n", text);
  ::close(fds[0]);
  ::close(fds[1]);
}

TEST(standard_error, gets_what_the_flags_of_the_log_ask_for)
{
  Temp_Dir dir;
  ACE_Log_Record record(LM_INFO, 0, 77);
  record.msg_data("a record\n");
  const int fd = ::open((dir / "log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  {
    const Diverted_Error diverted(fd);
    write_standard_error(record);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::VERBOSE_LITE);
    write_standard_error(record);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::VERBOSE_LITE);
  }
  ::close(fd);

  const std::string text = read_file(dir / "log");
  EXPECT_EQ(0u, text.find("a record\n")) << text;
  EXPECT_NE(std::string::npos, text.find("@LM_INFO@a record\n")) << text;
}

// ---- The place in the framework's log

namespace
{
// Notes the records that it gets, and hands them on to the one behind it.
class Other_Backend : public ACE_Log_Msg_Backend
{
public:
  explicit Other_Backend(ACE_Log_Msg_Backend* behind = nullptr) : behind_(behind) {}

  int open(const char*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override
  {
    texts.push_back(record.msg_data());
    return behind_ ? behind_->log(record) : 0;
  }

  std::vector<std::string> texts;

private:
  ACE_Log_Msg_Backend* const behind_;
};

// Each test has a companion of its own, and the log as it was before afterwards.
class journal_backend : public testing::Test
{
protected:
  journal_backend() : flags_(ACE_LOG_MSG->flags()), former_(ACE_LOG_MSG->msg_backend()) {}

  ~journal_backend() override
  {
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM | ACE_Log_Msg::STDERR);
    ACE_LOG_MSG->set_flags(flags_);
    ACE_LOG_MSG->msg_backend(former_);
  }

  void install() { ASSERT_EQ(0, backend_.install((dir_ / "socket").c_str(), Echo::LOST)); }

  const u_long flags_;
  ACE_Log_Msg_Backend* const former_;
  Temp_Dir dir_;
  Fake_Journal sink_{dir_ / "socket"};
  Journal_Backend backend_;
};
} // namespace

TEST_F(journal_backend, leaves_the_log_as_it_was)
{
  for (int i = 0; i < 2; ++i) {
    install();
    EXPECT_EQ(ACE_Log_Msg::CUSTOM, ACE_LOG_MSG->flags() & (ACE_Log_Msg::CUSTOM | ACE_Log_Msg::STDERR));
    backend_.remove();
    EXPECT_EQ(flags_, ACE_LOG_MSG->flags());
  }
}

TEST_F(journal_backend, is_there_once)
{
  install();
  EXPECT_EQ(-1, backend_.install("/x", Echo::LOST));
  EXPECT_EQ(EALREADY, errno);
}

TEST_F(journal_backend, hands_records_on_to_a_backend_that_was_there_before)
{
  Other_Backend other;
  ACE_LOG_MSG->msg_backend(&other);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
  install();

  ACE_DEBUG((LM_INFO, "one\n"));
  ASSERT_TRUE(sink_.wait_for("one"));
  backend_.remove();
  ACE_DEBUG((LM_INFO, "two\n"));

  EXPECT_EQ((std::vector<std::string>{"one\n", "two\n"}), other.texts);
  EXPECT_EQ(&other, ACE_LOG_MSG->msg_backend());
  EXPECT_EQ(1u, sink_.entries().size());
}

TEST_F(journal_backend, ends_behind_a_backend_that_came_later)
{
  install();
  Other_Backend other(&backend_);
  ACE_LOG_MSG->msg_backend(&other);

  ACE_DEBUG((LM_INFO, "one\n"));
  ASSERT_TRUE(sink_.wait_for("one"));
  backend_.remove();
  testing::internal::CaptureStderr();
  ACE_DEBUG((LM_INFO, "two\n"));

  EXPECT_EQ("two\n", testing::internal::GetCapturedStderr());
  EXPECT_EQ((std::vector<std::string>{"one\n", "two\n"}), other.texts);
  EXPECT_EQ(1u, sink_.entries().size());
}

// The thread of such a record has looked up its way while the companion was the only one.
TEST_F(journal_backend, writes_a_record_to_standard_error_that_comes_late)
{
  install();
  backend_.remove();
  ACE_Log_Record record(LM_INFO, 0, 0);
  record.msg_data("late\n");

  testing::internal::CaptureStderr();
  (void)backend_.log(record);
  EXPECT_EQ("late\n", testing::internal::GetCapturedStderr());
}

// With Echo::ALL it is the framework that writes to standard error.
TEST_F(journal_backend, leaves_a_late_record_to_the_framework_where_that_has_written_it)
{
  ASSERT_EQ(0, backend_.install((dir_ / "socket").c_str(), Echo::ALL));
  backend_.remove();
  ACE_Log_Record record(LM_INFO, 0, 0);
  record.msg_data("late\n");

  testing::internal::CaptureStderr();
  (void)backend_.log(record);
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(journal_backend, leaves_standard_error_alone_that_got_nothing_before)
{
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  ASSERT_EQ(0, backend_.install("/nowhere/at/all", Echo::LOST));

  testing::internal::CaptureStderr();
  ACE_DEBUG((LM_INFO, "lost\n"));
  backend_.remove();
  ACE_DEBUG((LM_INFO, "lost\n"));
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ(1u, backend_.lost());
}

TEST_F(journal_backend, sends_no_record_of_a_priority_that_is_switched_off)
{
  install();
  const u_long mask = ACE_LOG_MSG->priority_mask(ACE_Log_Msg::PROCESS);
  ACE_LOG_MSG->priority_mask(mask & ~static_cast<u_long>(LM_DEBUG), ACE_Log_Msg::PROCESS);
  for (const ACE_Log_Priority priority : {LM_DEBUG, LM_INFO}) {
    ACE_Log_Record record(priority, 0, 0);
    record.msg_data(priority == LM_INFO ? "on\n" : "off\n");
    (void)ACE_LOG_MSG->log(record);
  }
  ACE_LOG_MSG->priority_mask(mask, ACE_Log_Msg::PROCESS);

  ASSERT_TRUE(sink_.wait_for("on"));
  EXPECT_EQ(1u, sink_.entries().size());
}

TEST_F(journal_backend, leaves_errno_as_it_is)
{
  ASSERT_EQ(0, backend_.install("/nowhere/at/all", Echo::NONE));
  ACE_Log_Record record(LM_INFO, 0, 0);
  record.msg_data("lost\n");

  errno = EDOM;
  (void)backend_.log(record);
  EXPECT_EQ(EDOM, errno);
}

TEST_F(journal_backend, removes_one_newline_from_the_end_of_a_text)
{
  install();
  for (const char* const text : {"\n", "", "a\n\n", "b", "\nc\n"})
    ACE_DEBUG((LM_INFO, "%C", text));
  ASSERT_TRUE(sink_.wait_for("\nc"));

  std::vector<std::string> messages;
  for (const Entry_Fields& fields : sink_.entries())
    messages.push_back(fields.at("MESSAGE"));
  EXPECT_EQ((std::vector<std::string>{"", "", "a\n", "b", "\nc"}), messages);
}
