#include "starter/systemd_handler.h"

#include "tests/support/fake_systemd.h"
#include "tests/support/logged.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static const char READY[] = "sd_notify 0 READY=1\n";
static const char KEEP_ALIVE[] = "sd_notify 0 WATCHDOG=1\n";
static const char BANNER[] = ") is started.\n";

// The records of the notifier.
static std::vector<Logged> notifier_records(const Starter_Process& starter)
{
  std::vector<Logged> found;
  for (const Record& record : starter.records())
    if (record.file == "starter/systemd_handler.cpp")
      found.push_back(without_file(record));
  return found;
}

static void expect_orderly_end(Starter_Process& starter)
{
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_EQ(1u, starter.count(BANNER)) << starter.log();

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

// ---- With a client library of the test's own

class notifier_process : public testing::Test
{
protected:
  notifier_process()
  {
    options_.env["LIBSYSTEMD_FILENAME"] = fake_library();
    options_.env["FAKE_SD_CALLS"] = calls_;
    options_.env["WATCHDOG_USEC"] = "30000000";
  }

  std::vector<std::string> calls() const { return fake_calls(calls_); }

  long keep_alives() const
  {
    const std::vector<std::string> all = calls();
    return std::count(all.begin(), all.end(), KEEP_ALIVE);
  }

  bool wait_for_keep_alives(long count) const
  {
    return wait_until([this, count] { return keep_alives() >= count; });
  }

  const Temp_Dir dir_;
  const std::string calls_ = dir_ / "calls";
  Start_Options options_ = probed();
};

TEST_F(notifier_process, announces_its_interval_and_reports_readiness_before_the_banner)
{
  Starter_Process starter({}, options_);
  ASSERT_TRUE(starter.wait_for_record(BANNER)) << starter.log();

  EXPECT_EQ((std::vector<std::string>{"sd_booted", "sd_watchdog_enabled 0", READY, KEEP_ALIVE}), calls());
  const std::string log = starter.log();
  const std::size_t line = log.find("\n<6>Notify systemd every 10000 ms.\n");
  ASSERT_NE(std::string::npos, line) << log;
  EXPECT_LT(line, log.find("\nNotify systemd every 10000 ms.\n")) << log;
  EXPECT_LT(log.find("\nNotify systemd every 10000 ms.\n"), log.find("\ntessarin3 ")) << log;
  EXPECT_EQ((std::vector<Logged>{debug("Notify systemd every 10000 ms.\n")}), notifier_records(starter));
  expect_orderly_end(starter);
}

TEST_F(notifier_process, goes_on_sending_keep_alives_from_every_kind_of_loop)
{
  const std::vector<std::string> command_lines[] = {{},
                                                    {"--reactor", "select"},
                                                    {"--reactor", "dev_poll"},
                                                    {"--reactor", "priority"},
                                                    {"--reactor", "tp", "--threads", "3"},
                                                    {"--reactor", "dev_poll", "--threads", "2"}};
  options_.env["SD_NOTIFY_INTERVAL"] = "1";

  for (const std::vector<std::string>& command_line : command_lines) {
    SCOPED_TRACE(testing::PrintToString(command_line));
    unlink(calls_.c_str());
    Starter_Process starter(command_line, options_);

    EXPECT_TRUE(wait_for_keep_alives(3)) << starter.log();
    EXPECT_EQ(1u, starter.count("<6>Notify systemd every 1000 ms.\n")) << starter.log();
    const std::vector<std::string> all = calls();
    EXPECT_EQ(1, std::count(all.begin(), all.end(), READY));
    expect_orderly_end(starter);
  }
}

// An interval that wraps around when it is added to the present would have been over long ago, again and again.
TEST_F(notifier_process, rests_for_the_longest_interval_in_every_kind_of_loop)
{
  const std::vector<std::string> command_lines[] = {{},
                                                    {"--reactor", "select"},
                                                    {"--reactor", "dev_poll"},
                                                    {"--reactor", "priority"},
                                                    {"--reactor", "tp", "--threads", "2"}};
  options_.env["SD_NOTIFY_INTERVAL"] = "18446744073709551615";

  for (const std::vector<std::string>& command_line : command_lines) {
    SCOPED_TRACE(testing::PrintToString(command_line));
    unlink(calls_.c_str());
    Starter_Process starter(command_line, options_);

    EXPECT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_TRUE(starter.wait_until_idle()) << starter.log();
    EXPECT_EQ(1, keep_alives()) << "the one that goes with readiness";
    EXPECT_EQ(1u, starter.count("<6>Notify systemd every 9007199254740992000 ms.\n")) << starter.log();
    expect_orderly_end(starter);
  }
}

TEST_F(notifier_process, sends_no_keep_alive_while_the_only_loop_thread_is_stalled)
{
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const int fd = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  options_.env["SD_NOTIFY_INTERVAL"] = "1";
  Starter_Process starter({"-S", dynamic_directive("Staller", "staller", "_make_Staller", fifo)}, options_);
  ASSERT_TRUE(wait_for_keep_alives(2)) << starter.log();

  ASSERT_EQ(1, write(fd, "s", 1));
  ASSERT_TRUE(starter.wait_for_record("The loop is stalled.")) << starter.log();
  const long before = keep_alives();
  ASSERT_TRUE(starter.wait_for_record("The loop has been stalled for 3 s.")) << starter.log();
  EXPECT_EQ(before, keep_alives());

  ASSERT_EQ(1, write(fd, "g", 1));
  close(fd);
  EXPECT_TRUE(wait_for_keep_alives(before + 2)) << starter.log();
  expect_orderly_end(starter);
}

TEST_F(notifier_process, goes_on_with_keep_alives_in_a_pool_with_one_thread_stalled)
{
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const int fd = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  options_.env["SD_NOTIFY_INTERVAL"] = "1";
  Starter_Process starter(
      {"--reactor", "tp", "--threads", "2", "-S", dynamic_directive("Staller", "staller", "_make_Staller", fifo)},
      options_);
  ASSERT_TRUE(wait_for_keep_alives(1)) << starter.log();

  ASSERT_EQ(1, write(fd, "s", 1));
  ASSERT_TRUE(starter.wait_for_record("The loop is stalled.")) << starter.log();
  EXPECT_TRUE(wait_for_keep_alives(keep_alives() + 3)) << starter.log();

  ASSERT_EQ(1, write(fd, "g", 1));
  close(fd);
  ASSERT_TRUE(starter.wait_for_record("The loop goes on.")) << starter.log();
  expect_orderly_end(starter);
}

TEST_F(notifier_process, goes_on_with_keep_alives_through_a_hang_up)
{
  options_.env["SD_NOTIFY_INTERVAL"] = "1";
  Starter_Process starter({}, options_);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("reconfiguring")) << starter.log();

  EXPECT_TRUE(wait_for_keep_alives(keep_alives() + 2)) << starter.log();
  expect_orderly_end(starter);
}

TEST_F(notifier_process, starts_without_notifications_whatever_is_missing)
{
  struct Case
  {
    const char* name;
    std::map<std::string, std::string> env;
    std::vector<Logged> records;
  };
  const std::string old_library = fake_library("_without_watchdog");
  const Logged missing = warning("Not found symbol sd_watchdog_enabled in " + old_library + "!\n");
  const std::string no_notify = fake_library("_without_notify");
  const Case cases[] = {
      {"switched off", {{"LIBSYSTEMD_FILENAME", "0"}}, {}},
      {"no library",
       {{"LIBSYSTEMD_FILENAME", "/nowhere/lib.so"}},
       {warning_failed(
           "Unable to load /nowhere/lib.so, /nowhere/lib.so: cannot open shared object file: No such file or "
           "directory\n")}},
      {"no function",
       {{"LIBSYSTEMD_FILENAME", no_notify}},
       {error_failed("Not found symbol sd_notify in " + no_notify + "!\n")}},
      {"outside the init system", {{"FAKE_SD_BOOTED", "0"}}, {}},
      {"no watchdog", {{"FAKE_SD_WATCHDOG", "0"}}, {warning_failed("systemd watchdog is not enabled.\n")}},
      {"no period",
       {{"LIBSYSTEMD_FILENAME", old_library}, {"WATCHDOG_USEC", ""}},
       {missing, warning_failed("systemd watchdog is not enabled, WATCHDOG_USEC is unset.\n")}},
      {"another process",
       {{"LIBSYSTEMD_FILENAME", old_library}, {"WATCHDOG_PID", "1"}},
       {missing, warning_failed("systemd watchdog is not enabled, WATCHDOG_PID=1.\n")}},
      {"no memory", {{"FAULT_NEW", std::to_string(sizeof(Systemd_Handler))}}, {}}};

  for (const auto& [name, env, records] : cases) {
    SCOPED_TRACE(name);
    unlink(calls_.c_str());
    Start_Options options = options_;
    options.preload.push_back(preload_library("faults"));
    for (const auto& [variable, value] : env)
      options.env[variable] = value;
    Starter_Process starter({}, options);

    ASSERT_TRUE(starter.wait_for_record(BANNER)) << starter.log();
    EXPECT_EQ(records, notifier_records(starter));
    EXPECT_EQ(0u, starter.count("<6>"));
    expect_orderly_end(starter);
    for (const std::string& call : calls())
      EXPECT_EQ(std::string::npos, call.find("sd_notify")) << call;
  }
}

// ---- With the client library of the machine, and with the program's own

// A socket like the one that the init system provides for its services.
class Notify_Socket
{
public:
  Notify_Socket() : path_(dir_ / "notify"), fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
  {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    const int on = 1;
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        setsockopt(fd_, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0)
      ADD_FAILURE() << "no socket at " << path_;
  }
  ~Notify_Socket() { close(fd_); }

  Notify_Socket(const Notify_Socket&) = delete;
  Notify_Socket& operator=(const Notify_Socket&) = delete;

  const std::string& path() const { return path_; }

  // The next message, with the id of the process that sent it in front; "" when none arrives within a minute.
  std::string receive() const { return receive(60000); }

  bool is_empty() const { return receive(0).empty(); }

private:
  std::string receive(int timeout_msec) const
  {
    pollfd fd{fd_, POLLIN, 0};
    if (poll(&fd, 1, timeout_msec) != 1)
      return "";

    char text[4096];
    iovec part{text, sizeof text};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t n = recvmsg(fd_, &message, 0);
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (n < 0 || !header)
      return "";
    const ucred* const sender = reinterpret_cast<const ucred*>(CMSG_DATA(header));
    return std::to_string(sender->pid) + ' ' + std::string(text, static_cast<std::size_t>(n));
  }

  const Temp_Dir dir_;
  const std::string path_;
  const int fd_;
};

class system_library : public testing::Test
{
protected:
  void SetUp() override { NEEDS(is_root(), "root, for mounts of its own"); }

  // Starts the program in a mount namespace in which the library finds, or does not find, a running init system.
  virtual Start_Options options(bool booted) const
  {
    const std::string mark = booted ? " && mkdir -p /run/systemd/system" : "";
    Start_Options options = probed();
    options.wrapper = {"unshare",
                       "--mount",
                       "--propagation",
                       "private",
                       "sh",
                       "-c",
                       "mount -t tmpfs tmpfs /run" + mark + " && exec \"$@\"",
                       "sh"};
    options.env["NOTIFY_SOCKET"] = socket_.path();
    return options;
  }

  const Notify_Socket socket_;
};

// The parameter is the library, empty for the one that is found without a name.
class real_library : public system_library, public testing::WithParamInterface<std::string>
{
protected:
  Start_Options options(bool booted) const override
  {
    Start_Options options = system_library::options(booted);
    options.env["LIBSYSTEMD_FILENAME"] = public_path(GetParam());
    return options;
  }
};

INSTANTIATE_TEST_SUITE_P(, real_library, testing::Values("", TESTS_NOTIFY_LIBRARY),
                         [](const auto& library) { return library.param.empty() ? "of_systemd" : "of_starter"; });

TEST_P(real_library, delivers_readiness_and_keep_alives)
{
  Start_Options options = this->options(true);
  options.env["WATCHDOG_USEC"] = "30000000";
  options.env["SD_NOTIFY_INTERVAL"] = "1";
  Starter_Process starter({"--reactor", "tp", "--threads", "2"}, options);

  const std::string pid = std::to_string(starter.pid()) + ' ';
  EXPECT_EQ(pid + "READY=1\n", socket_.receive()) << starter.log();
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(pid + "WATCHDOG=1\n", socket_.receive()) << starter.log();
  EXPECT_EQ((std::vector<Logged>{debug("Notify systemd every 1000 ms.\n")}), notifier_records(starter));
  expect_orderly_end(starter);
}

TEST_P(real_library, takes_the_period_and_the_process_from_the_environment)
{
  Start_Options options = this->options(true);
  options.env["WATCHDOG_USEC"] = "12000000";
  // The shell knows the id of the process that it becomes.
  options.wrapper[6].replace(options.wrapper[6].find("exec"), 4, "export WATCHDOG_PID=$$ && exec");
  Starter_Process starter({}, options);

  EXPECT_EQ(std::to_string(starter.pid()) + " READY=1\n", socket_.receive()) << starter.log();
  expect_orderly_end(starter);
  EXPECT_EQ((std::vector<Logged>{debug("Notify systemd every 4000 ms.\n")}), notifier_records(starter));
}

TEST_P(real_library, finds_no_watchdog_for_another_process_or_without_a_period)
{
  for (const auto& [variable, value] : {std::pair("WATCHDOG_PID", "1"), std::pair("WATCHDOG_USEC", "")}) {
    SCOPED_TRACE(variable);
    Start_Options options = this->options(true);
    options.env["WATCHDOG_USEC"] = "30000000";
    options.env[variable] = value;
    Starter_Process starter({}, options);

    ASSERT_TRUE(starter.wait_for_record(BANNER)) << starter.log();
    expect_orderly_end(starter);
    EXPECT_EQ((std::vector<Logged>{warning_failed("systemd watchdog is not enabled.\n")}), notifier_records(starter));
    EXPECT_TRUE(socket_.is_empty());
  }
}

TEST_P(real_library, is_silent_where_the_init_system_does_not_run)
{
  Start_Options options = this->options(false);
  options.env["WATCHDOG_USEC"] = "30000000";
  Starter_Process starter({}, options);

  ASSERT_TRUE(starter.wait_for_record(BANNER)) << starter.log();
  expect_orderly_end(starter);
  EXPECT_TRUE(notifier_records(starter).empty());
  EXPECT_EQ(0u, starter.count("<6>"));
  EXPECT_TRUE(socket_.is_empty());
}

TEST_F(system_library, is_looked_for_by_two_names_before_the_process_goes_on_without_it)
{
  // The script hides the library in all default directories of the loader.
  Start_Options options = this->options(true);
  options.env["WATCHDOG_USEC"] = "30000000";
  options.wrapper[6] = "mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/system && : > /run/nothing && "
                       "for library in $(ldconfig -p | sed -n 's/.*libsystemd.* => //p'); do "
                       "mount --bind /run/nothing $library || exit 99; done; exec \"$@\"";
  Starter_Process starter({}, options);

  ASSERT_TRUE(starter.wait_for_record(BANNER)) << starter.log();
  expect_orderly_end(starter);
  const std::vector<Logged> records = notifier_records(starter);
  ASSERT_EQ(2u, records.size()) << testing::PrintToString(records);
  EXPECT_EQ(warning(records[0].text), records[0]);
  EXPECT_THAT(records[0].text, testing::MatchesRegex("Unable to load libsystemd.so.0, .*libsystemd.so.0: .*\n"));
  EXPECT_EQ(warning_failed("Unable to load libsystemd-daemon.so.0, libsystemd-daemon.so.0: cannot open shared object "
                           "file: No such file or directory\n"),
            records[1]);
  EXPECT_TRUE(socket_.is_empty());
}
