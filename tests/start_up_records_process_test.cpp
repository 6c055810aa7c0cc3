#include "starter/version.h"

#include "tests/support/fake_systemd.h"
#include "tests/support/logged.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/syscall_trace.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

static const char SOURCE[] = "starter/starter.cpp";
static const std::string BANNER_END =
    std::string(" " TESTS_PROJECT_VERSION " (rev ") + STARTER_REVISION + ") is started.\n";

static std::vector<Logged> logged(const Starter_Process& starter)
{
  std::vector<Logged> found;
  for (const Record& record : starter.records())
    found.push_back(with_file(record));
  return found;
}

// The system record of this machine, with the values that a test may set.
static std::string system_info(const std::string& memory, const std::string& swappiness)
{
  utsname uts;
  uname(&uts);
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);

  return std::string("system info: sysname=") + uts.sysname + ", nodename=" + uts.nodename +
         ", release=" + uts.release + ", version=" + uts.version + ", machine=" + uts.machine +
         ", processors=" + std::to_string(sysconf(_SC_NPROCESSORS_ONLN)) + ", memory=" + memory +
         "G, nofile=" + std::to_string(limit.rlim_cur) + ", swappiness=" + swappiness + "\n";
}

static std::string real_memory()
{
  const double bytes = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
  return std::to_string(static_cast<unsigned long>(bytes / 1024 / 1024 / 1024 + 0.5));
}

static std::string real_swappiness()
{
  return std::to_string(std::stoi(read_file("/proc/sys/vm/swappiness")));
}

// Start options with the notifier switched off.
static Start_Options quiet()
{
  Start_Options options = probed();
  options.env["LIBSYSTEMD_FILENAME"] = "0";
  return options;
}

// The records of a start until the event loop runs.
static std::vector<Logged> start(const Start_Options& options)
{
  Starter_Process starter({}, options);
  EXPECT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::vector<Logged> records = logged(starter);

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  return records;
}

static const Logged BANNER = info("tessarin3" + BANNER_END).in(SOURCE);

TEST(start_up_records, of_a_whole_start_and_stop_stand_in_this_order)
{
  const Temp_Dir dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  Start_Options options = probed();
  options.env["COMPONENT"] = "alpha";
  options.env["LIBSYSTEMD_FILENAME"] = fake_library();
  options.env["WATCHDOG_USEC"] = "30000000";
  const std::string directives = dir.write("svc.conf", dynamic_directive("Staller", "staller", "_make_Staller", fifo));

  Starter_Process starter({"--reactor", "tp", "--threads", "2", "-f", directives}, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  ASSERT_TRUE(starter.wait_for_threads(3)) << starter.log();
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();

  const std::string staller = "tests/services/staller.cpp";
  const std::vector<Logged> expected{info("Created 'tp' reactor with 2 threads\n").in(SOURCE),
                                     info("The staller is there.\n").in(staller),
                                     info(system_info(real_memory(), real_swappiness())).in(SOURCE),
                                     debug("Notify systemd every 10000 ms.\n").in("starter/systemd_handler.cpp"),
                                     info("tessarin3-alpha" + BANNER_END).in(SOURCE),
                                     info("Signal 15 (Terminated) caught in [starter].\n").in(SOURCE),
                                     info("The staller is gone.\n").in(staller)};
  EXPECT_EQ(expected, logged(starter));
}

TEST(start_up_records, of_a_plain_start_are_the_system_record_and_the_banner)
{
  EXPECT_EQ((std::vector<Logged>{info(system_info(real_memory(), real_swappiness())).in(SOURCE), BANNER}),
            start(quiet()));
}

TEST(start_up_records, name_the_component_unless_it_is_unset_or_empty)
{
  const std::tuple<const char*, const char*> cases[] = {
      {nullptr, "tessarin3"}, {"", "tessarin3"}, {"alpha", "tessarin3-alpha"}, {"a b%s%n", "tessarin3-a b%s%n"}};

  for (const auto& [component, product] : cases) {
    SCOPED_TRACE(component ? component : "unset");
    Start_Options options = quiet();
    if (component)
      options.env["COMPONENT"] = component;

    const std::vector<Logged> records = start(options);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(info(product + BANNER_END).in(SOURCE), records.back());
  }
}

// The framework takes no more than this of a record.
TEST(start_up_records, cut_the_name_of_the_component_rather_than_the_rest_of_the_banner)
{
  const std::size_t room = 4096 - ("tessarin3-" + BANNER_END).size();
  const std::string fits(room, 'x');
  const std::string shorter(room - 1, 'x');
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"fits", fits, fits},
      {"one byte too long", fits + 'y', fits},
      {"much too long", std::string(100000, 'x'), fits},
      {"a character of two bytes at the end", shorter + "\u00e4", shorter},
      {"a character of four bytes at the end", fits.substr(3) + "\U0001f600", fits.substr(3)},
      {"no characters at all", std::string(100000, '\x80'), std::string(room - 3, '\x80')}};

  for (const auto& [name, component, shown] : cases) {
    SCOPED_TRACE(name);
    Start_Options options = quiet();
    options.env["COMPONENT"] = component;

    const std::vector<Logged> records = start(options);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(info("tessarin3-" + shown + BANNER_END).in(SOURCE), records.back());
  }
}

TEST(start_up_records, name_the_version_of_the_project_and_a_revision)
{
  EXPECT_STREQ(TESTS_PROJECT_VERSION, STARTER_VERSION);
  EXPECT_THAT(std::string(STARTER_REVISION), testing::MatchesRegex("([0-9a-f]+|unknown)"));
}

TEST(start_up_records, round_memory_to_the_nearest_gibibyte_halves_up)
{
  const long page = sysconf(_SC_PAGESIZE);
  const long gib = (1L << 30) / page;
  const std::tuple<long, const char*> cases[] = {{0, "0"},       {gib / 2 - 1, "0"},       {gib / 2, "1"},
                                                 {gib, "1"},     {gib * 3 / 2 - 1, "1"},   {gib * 3 / 2, "2"},
                                                 {gib * 2, "2"}, {gib * 1000 + 1, "1000"}, {gib * 100000, "100000"},
                                                 {-1, "0"} /* a failing sysconf goes unnoticed */};

  for (const auto& [pages, memory] : cases) {
    SCOPED_TRACE(pages);
    Start_Options options = quiet();
    options.preload.push_back(preload_library("faults"));
    options.env["FAULT_PHYS_PAGES"] = std::to_string(pages);

    EXPECT_EQ((std::vector<Logged>{info(system_info(memory, real_swappiness())).in(SOURCE), BANNER}), start(options));
  }
}

TEST(start_up_records, leave_the_system_out_without_a_word_when_it_has_no_name)
{
  Start_Options options = quiet();
  options.preload.push_back(preload_library("faults"));
  options.env["FAULT_UNAME"] = "1";

  EXPECT_EQ((std::vector<Logged>{BANNER}), start(options));
}

// ---- Swappiness

class swappiness_record : public testing::Test
{
protected:
  void SetUp() override { NEEDS(is_root(), "root, for mounts of its own"); }

  // The records of a start after `command`, in a mount namespace. In `command`, $file is a file with `content`.
  std::vector<Logged> start_after(const std::string& command, const std::string& content = "") const
  {
    Start_Options options = quiet();
    options.wrapper = {"unshare",
                       "--mount",
                       "--propagation",
                       "private",
                       "sh",
                       "-c",
                       "file=$1; shift; " + command + " && exec \"$@\"",
                       "sh",
                       dir_.write("swappiness", content)};
    return start(options);
  }

  static Logged failure(int number, const std::string& text)
  {
    return error("Failed to get vm swappiness from /proc/sys/vm/swappiness, errno=" + std::to_string(number) + ", " +
                 text + "\n")
        .in(SOURCE);
  }

  static Logged system(const std::string& swappiness)
  {
    return info(system_info(real_memory(), swappiness)).in(SOURCE);
  }

  const Temp_Dir dir_;
};

TEST_F(swappiness_record, shows_one_two_and_three_digits_and_0_for_no_number)
{
  const std::pair<const char*, const char*> cases[] = {{"0\n", "0"},     {"7\n", "7"},     {"60\n", "60"},
                                                       {"100\n", "100"}, {"200\n", "200"}, {"many\n", "0"}};

  for (const auto& [content, value] : cases) {
    SCOPED_TRACE(content);
    EXPECT_EQ((std::vector<Logged>{system(value), BANNER}),
              start_after("mount --bind $file /proc/sys/vm/swappiness", content));
  }
}

TEST_F(swappiness_record, comes_after_an_error_record_when_there_is_no_such_file)
{
  EXPECT_EQ((std::vector<Logged>{failure(2, "No such file or directory"), system("-1"), BANNER}),
            start_after("mount -t tmpfs tmpfs /proc/sys"));
}

TEST_F(swappiness_record, comes_after_an_error_record_when_the_file_is_not_for_this_account)
{
  EXPECT_EQ((std::vector<Logged>{failure(13, "Permission denied"), system("-1"), BANNER}),
            start_after("chmod 0 $file && mount --bind $file /proc/sys/vm/swappiness && "
                        "set -- setpriv --reuid=65534 --regid=65534 --clear-groups -- \"$@\"",
                        "60\n"));
}

TEST_F(swappiness_record, comes_after_an_error_record_when_reading_fails)
{
  // Nothing is mapped at the address 0 of a process, so reading fails there.
  EXPECT_EQ((std::vector<Logged>{failure(5, "Input/output error"), system("-1"), BANNER}),
            start_after("mount --bind /proc/$$/mem /proc/sys/vm/swappiness"));
}

TEST_F(swappiness_record, comes_after_an_error_record_with_whatever_errno_is_when_the_file_is_empty)
{
  const std::vector<Logged> records = start_after("mount --bind $file /proc/sys/vm/swappiness");

  ASSERT_EQ(3u, records.size());
  EXPECT_EQ(error(records[0].text).in(SOURCE), records[0]);
  EXPECT_THAT(records[0].text,
              testing::MatchesRegex("Failed to get vm swappiness from /proc/sys/vm/swappiness, errno=[0-9]+, .+\n"));
  EXPECT_EQ(system("-1"), records[1]);
  EXPECT_EQ(BANNER, records[2]);
}

// The test reads the log only. Without /proc a sanitizer does not find its options, which it needs beside a preloaded
// probe, and does not reach an orderly end.
TEST_F(swappiness_record, comes_after_an_error_record_when_proc_is_not_mounted)
{
  Start_Options options;
  options.env["LIBSYSTEMD_FILENAME"] = "0";
  options.wrapper = {"unshare", "--mount", "--propagation", "private", "sh", "-c", "umount -l /proc && exec \"$@\"",
                     "sh"};
  Starter_Process starter({}, options);
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

  const std::string expected = failure(2, "No such file or directory").text + system("-1").text + BANNER.text;
  EXPECT_EQ(1u, starter.count(expected)) << starter.log();
}

// ---- The order of it all

// Whether calls that match `milestones`, which are regular expressions, are found in `calls` in this order.
static testing::AssertionResult in_order(const std::vector<std::string>& calls,
                                         const std::vector<std::string>& milestones)
{
  auto next = milestones.begin();
  for (const std::string& call : calls)
    if (next != milestones.end() && testing::internal::RE::PartialMatch(call, *next))
      ++next;
  if (next == milestones.end())
    return testing::AssertionSuccess();

  std::string all;
  for (const std::string& call : calls)
    all += call + '\n';
  return testing::AssertionFailure() << "there is no " << *next << " at its place in\n" << all;
}

TEST(start_up_order, is_the_one_that_services_and_operators_rely_on)
{
  NEEDS(is_root(), "root, to switch the account");
  NEEDS(can_trace(), "strace and the right to trace processes");
  const Temp_Dir dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  ASSERT_EQ(0, chmod(fifo.c_str(), 0666));
  Start_Options options;
  options.env["LIBSYSTEMD_FILENAME"] = fake_library();
  options.env["FAKE_SD_CALLS"] = dir / "calls";
  options.env["WATCHDOG_USEC"] = "30000000";
  const Syscall_Trace trace("openat,write,uname,setuid,rt_sigaction,epoll_wait,epoll_pwait,epoll_create1,munmap,close");
  trace.apply_to(options);

  Starter_Process starter({"--user", "nobody", "--reactor", "dev_poll", "-S",
                           dynamic_directive("Staller", "staller", "_make_Staller", fifo)},
                          options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();

  EXPECT_TRUE(in_order(trace.calls(starter.pid()),
                       {"^setuid\\([0-9]+\\) = 0",                       // the command line is acted on: account,
                        "^write\\(2, \"Created 'dev_poll' reactor",      // reactor
                        "^uname\\(",                                     // the host name, for the log
                        "^rt_sigaction\\(SIGTERM, \\{sa_handler=0x",     // the dispositions,
                        "^rt_sigaction\\(SIGURG, \\{sa_handler=SIG_IGN", // to the last one
                        "^openat\\(.*libstaller.so",                     // services
                        "^openat\\(.*/fifo\"",                           //
                        "^write\\(2, \"The staller is there",            //
                        "^openat\\(.*\"/proc/sys/vm/swappiness\", O_RDONLY\\) = [0-9]+", // the system record
                        "^uname\\(",                                                     //
                        "^write\\(2, \"system info: ",                                   //
                        "^openat\\(.*libfake_libsystemd.so",                             // the notifier
                        "^write\\(2, \"<6>Notify systemd every ",                        //
                        "^write\\(2, \"Notify systemd every ",                           //
                        "^write\\([0-9]+, \"sd_notify 0 READY=1",                        //
                        "^write\\([0-9]+, \"sd_notify 0 WATCHDOG=1",                     //
                        "^write\\(2, \"tessarin3 ",                                      // the banner
                        "^epoll_p?wait\\(",                                              // the loop
                        "^write\\(2, \"Signal 15 ",                                      //
                        "^write\\(2, \"The staller is gone"}));                          // the end of the services
}

// ---- The source file that records name

// The source file of the first record that holds `text`; what stands there instead when there is none.
static std::string source_of(const Starter_Process& starter, const std::string& text)
{
  for (const Record& record : starter.records())
    if (record.text.find(text) != std::string::npos)
      return record.file;
  return "no record holds this text";
}

TEST(source_file, is_the_same_in_the_records_of_every_room_of_the_program)
{
  Start_Options options = probed();
  options.env["DIRECTORY"] = "/";
  Starter_Process starter({"--user", "there-is-no-such-user", "--reactor", "select", "-f", "$DIRECTORY"}, options);
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGUSR2);
  ASSERT_TRUE(starter.wait_for_record("ACE::debug.")) << starter.log();
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("and reconfiguring ...")) << starter.log();
  starter.send(SIGALRM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();

  const char* const texts[] = {"password entry", // identity
                               "Created",        // event loop
                               "Failed to read", // configuration
                               "system info",    // machine
                               "reconfiguring",  // hang-up
                               "ACE::debug.",    // signals
                               "the back trace"};
  for (const char* const text : texts)
    EXPECT_EQ(SOURCE, source_of(starter, text)) << text;
}
