// The command and a process of the program with the companion "control", end to end. One test takes the tour of the
// guide to operating.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/hanger.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <sys/stat.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// A component whose configuration is in a directory of the test, where the commands work too.
class starterctl_with_a_component : public testing::Test
{
protected:
  void start(const std::vector<std::string>& loop = {"--reactor", "dev_poll", "--threads", "4"})
  {
    dir_.write("demo.d/00-control.conf", companion_directive("control", ("-s " + socket_).c_str()));
    Start_Options options;
    options.env["COMPONENT"] = "demo";
    options.env["LD_LIBRARY_PATH"] = TESTS_EXAMPLE_LIBRARY_DIR;
    std::vector<std::string> args = loop;
    args.insert(args.end(), {"-f", dir_ / "demo.d"});
    starter_ = std::make_unique<Starter_Process>(args, options);
    ASSERT_TRUE(starter_->wait_for_record("is started.")) << starter_->log();
    ASSERT_TRUE(starter_->wait_for_event_loop()) << starter_->log();
  }

  // Runs the commands of a script for bash, in which starterctl is in the path, and the component is the only one.
  std::string run_script(const std::string& script)
  {
    const std::string file = dir_.write("script", script);
    const std::string prepare = "mount -t tmpfs tmpfs /run && mkdir -p /run/starter/demo && ln -s " + socket_ +
                                " /run/starter/demo/control.socket && exec bash " + file;
    return run("cd " + dir_.path() + " && PATH=" TESTS_STARTERCTL_DIR ":" TESTS_CHECKER_DIR ":\"$PATH\"" +
               " timeout -k 5 300 unshare --mount sh -c '" + prepare + "' 2>&1")
        .output;
  }

  // The end of the command with these arguments: its output, and its status in the last line.
  std::string tell(const std::string& arguments) const
  {
    const Ended ended = run(
        "cd " + dir_.path() +
        " && PATH=" TESTS_CHECKER_DIR ":\"$PATH\" " TESTS_STARTERCTL_DIR "/starterctl -s control.socket " + arguments);
    return ended.output + "status " + std::to_string(ended.status);
  }

  const Temp_Dir dir_;
  const std::string socket_ = dir_ / "control.socket";
  std::unique_ptr<Starter_Process> starter_;
};

static const char ECHO[] = "dynamic Echo Service_Object * echo:_make_Echo() \"-p 0\"\n";
static const char TIMER[] = "dynamic Timer Service_Object * timer:_make_Timer() \"-i 1000\"\n";

// ---- The tour of the guide

// The lines of the terminal that the guide shows: its first block that begins with a prompt.
static std::vector<std::string> terminal_of(const std::string& guide)
{
  std::vector<std::string> lines;
  for (const std::string& line : lines_of(guide.substr(guide.find("\n## One service at a time\n")))) {
    const bool is_shown = line.rfind("    ", 0) == 0;
    if (lines.empty() ? line.rfind("    $ ", 0) == 0 : is_shown || line.empty())
      lines.push_back(is_shown ? line.substr(4) : "");
    else if (!lines.empty())
      break;
  }
  while (!lines.empty() && lines.back().empty())
    lines.pop_back();
  return lines;
}

// The form of a line: without what differs from one run to another.
static std::string form_of(std::string line)
{
  const std::pair<const char*, const char*> rules[] = {{"^Uptime:.*", "Uptime:"},
                                                       {"\\(rev [^)]*\\)", "(rev #)"},
                                                       {"0x[0-9a-f]+", "0x#"},
                                                       {"[0-9]+", "#"},
                                                       {"/[^ :+]*/([^/ :+]+)", "$1"},
                                                       {"\\bworking\\b", "waiting"},
                                                       {" +", " "},
                                                       {"^ | $", ""}};
  for (const auto& [pattern, replacement] : rules)
    line = std::regex_replace(line, std::regex(pattern), replacement);
  return line;
}

// The forms of the lines in one text, each with a newline around it.
static std::string forms_of(const std::vector<std::string>& lines)
{
  std::string text = "\n";
  for (const std::string& line : lines)
    text += form_of(line) + '\n';
  return text;
}

// The test fails unless the transcript has the form that the guide shows, where "..." stands for any lines.
static void expect_form(const std::vector<std::string>& shown, const std::vector<std::string>& transcript)
{
  std::string rest = forms_of(shown);
  std::string text = forms_of(transcript);
  static const std::string dots = form_of("...") + '\n';

  std::size_t end = rest.find('\n' + dots);
  ASSERT_NE(std::string::npos, end);
  EXPECT_EQ(rest.substr(0, end + 1), text.substr(0, end + 1));
  rest.erase(0, end + 1 + dots.size());
  for (; (end = rest.find('\n' + dots)) != std::string::npos; rest.erase(0, end + 1 + dots.size())) {
    const std::string part = '\n' + rest.substr(0, end + 1);
    ASSERT_NE(std::string::npos, text.find(part)) << part << text;
    text.erase(0, text.find(part) + part.size() - 1);
  }
  EXPECT_EQ("", rest) << "the guide shows an end that nothing is compared with";
}

TEST_F(starterctl_with_a_component, is_as_the_guide_shows_it)
{
  NEEDS(is_root() && can_mount(), "root, for mounts of its own");
  dir_.write("demo.d/echo.conf", ECHO);
  dir_.write("demo.d/timer.conf", TIMER);
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(starter_->wait_for_threads(6)) << "the main one, four of the pool, that of the companion";
  ASSERT_TRUE(starter_->wait_until_idle());
  const std::vector<std::string> shown = terminal_of(read_file(TESTS_SOURCE_DIR "/doc/operating.md"));

  // A command may ask for the exit status of the one before it.
  std::string script = "prompt() { printf '$ %s\\n' \"$1\"; (exit $status); eval \"$1\"; status=$?; }\nstatus=0\n";
  unsigned commands = 0;
  for (const std::string& line : shown)
    if (line.rfind("$ ", 0) == 0) {
      script += "prompt '" + std::regex_replace(line.substr(2), std::regex("'"), "'\\''") + "'\n";
      ++commands;
    }
  EXPECT_LE(12u, commands);
  const std::string transcript = run_script(script);

  expect_form(shown, lines_of(transcript));
  if (HasFailure())
    std::cerr << transcript << starter_->log();
}

// ---- What the tour leaves out

TEST_F(starterctl_with_a_component, tells_the_state_of_a_process_whose_loop_hangs)
{
  Hanger_Commands commands;
  starter_ = std::make_unique<Starter_Process>(
      commands.make_args({}, "-t 100", companion_directive("control", ("-s " + socket_).c_str())));
  ASSERT_TRUE(starter_->wait_for_event_loop()) << starter_->log();
  EXPECT_EQ("OK: all services of the configuration are active\nstatus 0", tell("health"));

  ASSERT_TRUE(commands.hang(*starter_, HANGS[0])) << starter_->log();
  ASSERT_TRUE(starter_->wait_for_record("has been in one callback"));
  EXPECT_THAT(tell("health"), AllOf(StartsWith("CRITICAL: the event loop does not answer within a second"),
                                    testing::EndsWith("\nstatus 2")));
  EXPECT_THAT(tell("status"), AllOf(HasSubstr("\nState:         running\n"), HasSubstr("  working  ")));
  EXPECT_THAT(tell("trace"), AllOf(HasSubstr("hang_asleep"), HasSubstr("/libhanger.so+0x")));
  EXPECT_EQ(
      "starterctl: the process at control.socket has not answered in time; it may still do what it has been asked "
      "for\nstatus 2",
      tell("--timeout 1 suspend Hanger"));

  ASSERT_TRUE(commands.release(*starter_)) << starter_->log();
  EXPECT_TRUE(starter_->wait_until([&] { return tell("trace").find("hang_asleep") == std::string::npos; }));
}

TEST_F(starterctl_with_a_component, loads_a_service_and_removes_it)
{
  ASSERT_NO_FATAL_FAILURE(start());
  const std::string talker = dynamic_directive("A", "talker", "_make_Talker", "x");

  EXPECT_EQ("The directive is carried out.\nstatus 0", tell("load '" + talker + "'"));
  EXPECT_TRUE(starter_->wait_for_record("x init."));
  EXPECT_EQ("starterctl: There is a service 'A' already.\nstatus 1", tell("load '" + talker + "'"));
  EXPECT_EQ("The service A is removed.\nstatus 0", tell("remove A"));
  EXPECT_TRUE(starter_->wait_for_record("x fini."));
  EXPECT_EQ("starterctl: There is no service 'A'.\nstatus 1", tell("remove A"));
}

TEST_F(starterctl_with_a_component, switches_records_on_and_off)
{
  dir_.write("demo.d/a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_EQ(1u, starter_->count("x init."));

  EXPECT_THAT(tell("log-level error"), testing::EndsWith("status 0"));
  EXPECT_THAT(tell("restart A"), testing::EndsWith("status 0"));
  EXPECT_EQ(1u, starter_->count("x init.")) << "the record is no error";
  EXPECT_THAT(tell("log-level info"), testing::EndsWith("status 0"));
  EXPECT_THAT(tell("restart A"), testing::EndsWith("status 0"));
  EXPECT_TRUE(starter_->wait_for_record("x init.", 2));
}

TEST_F(starterctl_with_a_component, is_refused_for_another_account)
{
  NEEDS(is_root(), "root, to become another account");
  ASSERT_NO_FATAL_FAILURE(start());
  const std::string before = "cd / && setpriv --reuid 65534 --clear-groups " TESTS_STARTERCTL_DIR "/starterctl -s ";

  EXPECT_EQ("starterctl: cannot connect to " + socket_ + ": Permission denied\n",
            run(before + socket_ + " status").output);
  ASSERT_EQ(0, chmod(socket_.c_str(), 0666));
  const Ended refused = run(before + socket_ + " status");
  EXPECT_EQ("starterctl: Only root and the user of the process may give commands.\n", refused.output);
  EXPECT_EQ(1, refused.status);
}

TEST_F(starterctl_with_a_component, gives_the_verdict_of_each_reload)
{
  const std::string good = dynamic_directive("A", "talker", "_make_Talker", "x");
  const std::string broken = dynamic_directive("A", "talker", "_make_Nobody", "x");
  dir_.write("demo.d/a.conf", good);
  ASSERT_NO_FATAL_FAILURE(start());

  for (unsigned i = 0; i < 5; ++i) {
    dir_.write("demo.d/a.conf", broken);
    EXPECT_THAT(tell("reload"), AllOf(StartsWith(dir_ / "demo.d/a.conf:1: missing-factory: service 'A': "),
                                      testing::EndsWith("nothing is reloaded\nstatus 1")));
    const std::string lost = tell("reload --force");
    EXPECT_THAT(lost, AllOf(HasSubstr("Started:  Control\n"), HasSubstr("Failed:   A ("), HasSubstr("Missing:  A\n"),
                            testing::EndsWith("\nstatus 1")));
    dir_.write("demo.d/a.conf", good);
    EXPECT_EQ("Ended:    Control\nStarted:  A, Control\nstatus 0", tell("reload")) << i;
    EXPECT_EQ("Ended:    A, Control\nStarted:  A, Control\nstatus 0", tell("reload")) << i;
  }
}
