// The tests try out what starter.conf(5) says about how the framework reads configuration files.

#include "tests/support/starter_process.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <signal.h>

using ::testing::HasSubstr;
using ::testing::Not;

static const std::string FACTORY = ":_make_Talker() ";

// A directive that loads the library "talker", which logs "NAME init." and "NAME fini." with its first argument.
static std::string talker(const std::string& name, const std::string& rest)
{
  return "dynamic " + name + " Service_Object * " + service_library("talker") + FACTORY + rest;
}

// The records of the process from the start of its services to their end.
static std::string log_of(const std::string& conf, const Start_Options& options = {})
{
  const Temp_Dir dir;
  Starter_Process starter({"-f", dir.write("services", conf)}, options);
  EXPECT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  return starter.log();
}

TEST(manual_process, a_string_ends_with_the_last_such_quote_of_its_line)
{
  EXPECT_THAT(log_of(talker("a", "\"x\" # see\n")), HasSubstr("x init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"x\" # it's\n")), HasSubstr("x init.\n"));
  EXPECT_THAT(log_of(talker("a", "'x' # \"see\"\n")), HasSubstr("x init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"x\" # see \"y\"\n")), HasSubstr("x # see y init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"x\ny\"\n")), HasSubstr("Unable to find the end of the string"));
  EXPECT_THAT(log_of(talker("a", "\"'x y' z\"\n")), HasSubstr("x y init.\n"));
}

TEST(manual_process, directives_need_no_lines_of_their_own)
{
  const std::string log =
      log_of("dynamic\na\nService_Object\n*\n" + service_library("talker") + FACTORY + "'a' " + talker("b", "\n\"b\""));

  EXPECT_THAT(log, HasSubstr("a init.\nb init.\n"));
}

TEST(manual_process, names_that_the_syntax_does_not_allow_are_syntax_errors)
{
  const std::string lines[] = {talker("my-service", "\"x\""),
                               talker("my.service", "\"x\""),
                               talker("1st", "\"x\""),
                               talker("active", "\"x\""),
                               "dynamic a Service_Object * t" + FACTORY,
                               "dynamic a Service_Object * active" + FACTORY,
                               "dynamic a Service_Object * stream" + FACTORY};

  for (const std::string& line : lines) {
    SCOPED_TRACE(line);
    const std::string log = log_of("# first\n" + line + "\n" + talker("good", "\"good\""));
    EXPECT_THAT(log, HasSubstr("on line 2: syntax error\n"));
    EXPECT_THAT(log, Not(HasSubstr("x init.")));
    EXPECT_THAT(log, HasSubstr("good init.\n"));
  }
}

TEST(manual_process, a_library_with_a_version_needs_its_full_file_name)
{
  const Temp_Dir dir;
  for (const char* const name : {"/libtalker-1.2.so", "/libactive.so"})
    std::filesystem::copy_file(service_library("talker"), dir.path() + name);
  Start_Options options;
  options.env["LD_LIBRARY_PATH"] = dir.path();

  const std::string log = log_of("dynamic a Service_Object * talker-1.2" + FACTORY + "'short'\n" +
                                     "dynamic b Service_Object * libtalker-1.2.so" + FACTORY + "'full'\n" +
                                     "dynamic c Service_Object * \"active\"" + FACTORY + "'quoted'\n",
                                 options);

  EXPECT_THAT(log, Not(HasSubstr("short init.")));
  EXPECT_THAT(log, HasSubstr("full init.\nquoted init.\n"));
}

TEST(manual_process, the_first_variable_of_an_argument_is_replaced_if_it_is_set)
{
  Start_Options options;
  options.env["VALUE"] = "v";

  EXPECT_THAT(log_of(talker("a", "\"$VALUE\""), options), HasSubstr("v init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"pre$VALUE\""), options), HasSubstr("prev init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"$VALUE/$VALUE\""), options), HasSubstr("v/$VALUE init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"$UNSET\""), options), HasSubstr("$UNSET init.\n"));
  EXPECT_THAT(log_of(talker("a", "\"${VALUE}\""), options), HasSubstr("${VALUE} init.\n"));
}

TEST(manual_process, an_inactive_service_is_initialised_too)
{
  EXPECT_THAT(log_of(talker("a", "inactive \"x\"")), HasSubstr("x init.\n"));
}

TEST(manual_process, a_namesake_is_finalised_first)
{
  EXPECT_THAT(log_of(talker("a", "\"one\"\n") + talker("a", "\"two\"\n")),
              HasSubstr("one init.\none fini.\ntwo init.\n"));
}

TEST(manual_process, a_static_service_that_is_unknown_is_logged)
{
  EXPECT_THAT(log_of("static a\nremove b\nsuspend c\nresume d\n" + talker("e", "\"e\"")),
              HasSubstr("ERROR: SG::initialize - service 'a' was not located.\ne init.\n"));
}

TEST(manual_process, a_removed_service_leaves_its_library_mapped)
{
  const Temp_Dir dir;
  const std::string conf = dir.write("services", talker("a", "\"x\"\n") + "remove a\n");
  Starter_Process starter({"-f", conf});
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

  EXPECT_EQ(1u, starter.count("x fini.\n"));
  EXPECT_THAT(read_file("/proc/" + std::to_string(starter.pid()) + "/maps"), HasSubstr(service_library("talker")));
}

TEST(manual_process, a_hang_up_takes_additions_and_changes_but_no_removals)
{
  const Temp_Dir dir;
  const std::string conf = dir.write("services", talker("a", "\"a\"\n") + talker("b", "\"b\"\n"));
  Starter_Process starter({"-f", conf, "-S", talker("s", "\"s\"")});
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(starter.wait_until_idle());

  dir.write("services", talker("b", "\"changed\"\n") + talker("c", "\"c\"\n"));
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("c init.\n")) << starter.log();

  EXPECT_THAT(starter.log(), HasSubstr("reconfiguring ... \nb fini.\nchanged init.\nc init.\n"));
  EXPECT_EQ(0u, starter.count("a fini."));
  EXPECT_EQ(1u, starter.count("s init."));
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("a fini."));
}

TEST(manual_process, a_hang_up_stops_at_a_file_that_is_gone)
{
  const Temp_Dir dir;
  const std::string one = dir.write("one", talker("one", "\"one\""));
  const std::string two = dir.write("two", talker("two", "\"two\""));
  const std::string three = dir.write("three", talker("three", "\"three\""));
  Starter_Process starter({"-f", one, "-f", two, "-f", three});
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(starter.wait_until_idle());

  std::filesystem::remove(two);
  starter.send(SIGHUP);

  ASSERT_TRUE(starter.wait_for_record("process_directives: No such file or directory\n")) << starter.log();
  EXPECT_THAT(starter.log(), HasSubstr("one fini.\none init.\nprocess_directives:"));
  EXPECT_EQ(1u, starter.count("two init."));
  EXPECT_EQ(1u, starter.count("three init."));
}

// Ends the process whose id stands in a file.
class Daemon
{
public:
  explicit Daemon(const std::string& pid_file)
  {
    (void)wait_until([&] { return read_file(pid_file).find('\n') != std::string::npos; });
    pid_ = std::atoi(read_file(pid_file).c_str());
  }
  ~Daemon()
  {
    if (pid_ > 1)
      kill(pid_, SIGKILL);
  }

  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  pid_t pid() const { return pid_; }

private:
  pid_t pid_ = 0;
};

TEST(manual_process, the_configurator_in_the_background_ignores_hang_ups)
{
  const Temp_Dir dir;
  Starter_Process starter({"-b", "-p", dir / "pid", "-S", talker("a", "\"x\"")});
  EXPECT_EQ(0, starter.wait_status());

  const Daemon daemon(dir / "pid");
  ASSERT_LT(1, daemon.pid());

  EXPECT_THAT(signals_in_mask(process_status_field(daemon.pid(), "SigIgn")), ::testing::Contains(SIGHUP));
}
