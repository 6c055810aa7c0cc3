#include "ctl/answer.h"
#include "ctl/arguments.h"
#include "ctl/command_run.h"
#include "ctl/commands.h"
#include "ctl/connection.h"
#include "ctl/performer.h"
#include "ctl/sockets.h"
#include "ctl/table.h"
#include "ctl/usage.h"
#include "tests/support/fake_control.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

static Deadline in_seconds(int seconds)
{
  return std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
}

// ---- Tables and durations

TEST(starterctl_table, has_columns_as_wide_as_their_widest_cells)
{
  EXPECT_EQ("SERVICE  STATE\n"
            "Echo     active\n"
            "A        suspended\n",
            format_table({{"SERVICE", "STATE"}, {"Echo", "active"}, {"A", "suspended"}}));
}

TEST(starterctl_table, aligns_columns_to_the_right_on_request)
{
  EXPECT_EQ("TID  NAME  TURNS\n"
            "  7  a       100\n"
            "100  b         1\n",
            format_table({{"TID", "NAME", "TURNS"}, {"7", "a", "100"}, {"100", "b", "1"}}, {0, 2}));
}

TEST(starterctl_table, counts_characters_and_not_bytes)
{
  EXPECT_EQ("M\xc3\xbcller  x\n"
            "a       x\n",
            format_table({{"M\xc3\xbcller", "x"}, {"a", "x"}}));
}

TEST(starterctl_table, lets_no_control_character_through)
{
  EXPECT_EQ("\\x1b[2J   x\n"
            "\\x0a      x\n"
            "\\xc2\\x9b  x\n"
            "\\xff      x\n"
            "\\x7f      x\n",
            format_table({{"\x1b[2J", "x"}, {"\n", "x"}, {"\xc2\x9b", "x"}, {"\xff", "x"}, {"\x7f", "x"}}));
}

TEST(starterctl_table, ends_no_line_in_blanks)
{
  EXPECT_EQ("a\n\nlong\n", format_table({{"a", ""}, {""}, {"long"}}));
}

TEST(starterctl_duration, has_the_two_largest_units)
{
  const std::pair<long long, const char*> cases[] = {
      {0, "0 seconds"}, {1, "1 second"},           {59, "59 seconds"},
      {60, "1 minute"}, {61, "1 minute 1 second"}, {3599, "59 minutes 59 seconds"},
      {3600, "1 hour"}, {3659, "1 hour"},          {7500, "2 hours 5 minutes"},
      {86400, "1 day"}, {90000, "1 day 1 hour"},   {8640000, "100 days"}};
  for (const auto& [seconds, text] : cases)
    EXPECT_EQ(text, format_duration(seconds)) << seconds;
}

// ---- The command line

// The arguments of a line whose words are separated by blanks. The problem goes to `problem`.
static Arguments read(const std::vector<std::string>& words, std::string& problem)
{
  std::vector<std::string> texts{"starterctl"};
  texts.insert(texts.end(), words.begin(), words.end());
  std::vector<char*> argv;
  for (std::string& text : texts)
    argv.push_back(text.data());
  Arguments arguments;
  problem = read_arguments(static_cast<int>(argv.size()), argv.data(), arguments);
  return arguments;
}

TEST(starterctl_arguments, may_have_options_on_either_side_of_the_command)
{
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"-c", "demo", "--json", "--timeout", "7", "remove", "Echo"},
                                             {"remove", "Echo", "--timeout=7", "-c", "demo", "--json"},
                                             {"remove", "--json", "-c", "demo", "--timeout=7", "--", "Echo"}}) {
    std::string problem;
    const Arguments arguments = read(words, problem);

    EXPECT_EQ("", problem);
    EXPECT_EQ("demo", arguments.component);
    EXPECT_EQ("", arguments.socket);
    EXPECT_TRUE(arguments.is_json);
    EXPECT_EQ(7u, arguments.timeout_sec);
    ASSERT_TRUE(arguments.command);
    EXPECT_STREQ("remove", arguments.command->name);
    EXPECT_EQ("Echo", arguments.word);
  }
}

TEST(starterctl_arguments, are_refused_with_the_reason)
{
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{}, "a command is missing; see --help"},
      {{"stop"}, "there is no command 'stop'; see --help"},
      {{"status", "-x"}, "there is no option -x; see --help"},
      {{"status", "--foo=1"}, "there is no option --foo; see --help"},
      {{"status", "--json=1"}, "the option --json takes no value"},
      {{"status", "-c"}, "the option -c needs a value"},
      {{"status", "-s", ""}, "the option -s needs a value"},
      {{"status", "--timeout="}, "the option --timeout needs a value"},
      {{"status", "-c", "a", "-s", "b"}, "-c and -s exclude each other"},
      {{"status", "-c", ".."}, "'..' is no name of a component"},
      {{"status", "-c", "a/b"}, "'a/b' is no name of a component"},
      {{"status", "--timeout", "0"}, "--timeout takes seconds from 1 to 86400"},
      {{"status", "--timeout", "86401"}, "--timeout takes seconds from 1 to 86400"},
      {{"status", "--timeout", "-1"}, "--timeout takes seconds from 1 to 86400"},
      {{"status", "--timeout", "1s"}, "--timeout takes seconds from 1 to 86400"},
      {{"status", "--timeout", "99999999999999999999"}, "--timeout takes seconds from 1 to 86400"},
      {{"reload", "--or-signal", "1"}, "--or-signal takes the id of a process"},
      {{"reload", "--or-signal", "x"}, "--or-signal takes the id of a process"},
      {{"status", "--force"}, "--force and --or-signal belong to the command reload"},
      {{"status", "--or-signal", "7"}, "--force and --or-signal belong to the command reload"},
      {{"status", "Echo"}, "the command status takes no argument"},
      {{"remove"}, "the command remove needs an argument: NAME"},
      {{"remove", "a", "b"}, "the command remove takes one argument: NAME"},
      {{"remove", ""}, "the command remove takes no empty argument"},
      {{"debug", "yes"}, "the command debug takes on or off"},
      {{"log-level", "loud"},
       "there is no priority 'loud'; the priorities are debug, info, notice, warning, error, "
       "critical, alert and emergency"},
      {{"--help", "status"}, "--help and --version stand alone"}};

  for (const auto& [words, expected] : cases) {
    std::string problem;
    (void)read(words, problem);
    EXPECT_EQ(expected, problem) << testing::PrintToString(words);
  }
}

TEST(starterctl_usage, names_every_command_with_its_argument)
{
  EXPECT_EQ(13u, commands().size());
  for (const Command& command : commands())
    EXPECT_THAT(USAGE,
                HasSubstr(std::string("\n  ") + command.name + ' ' + (command.argument ? command.argument : "")));
}

// The names in the text that the first group of the pattern finds.
static std::set<std::string> names_in(const std::string& text, const char* pattern)
{
  const std::regex regex(pattern);
  std::set<std::string> names;
  for (std::sregex_iterator i(text.begin(), text.end(), regex); i != std::sregex_iterator(); ++i)
    names.insert((*i)[1]);
  return names;
}

TEST(starterctl_manual, has_the_options_and_commands_of_the_usage)
{
  const std::string page = read_file(TESTS_MANUAL_PAGE);

  const std::set<std::string> options = names_in(USAGE, "\n  -([a-z-]+) ");
  EXPECT_EQ(8u, options.size());
  EXPECT_EQ(options, names_in(page, "\n\\.It Fl ([a-z-]+)"));
  EXPECT_EQ(options, names_in(page.substr(0, page.find("\n.Sh DESCRIPTION")), "Fl ([a-z-]+)"));

  const std::set<std::string> names = names_in(USAGE, "\n  ([a-z][a-z-]*) ");
  EXPECT_EQ(commands().size(), names.size());
  EXPECT_EQ(names, names_in(page, "\n\\.It Cm ([a-z-]+)"));
}

// ---- Requests and answers

TEST(starterctl_request, is_a_line_of_json_whatever_the_argument)
{
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"status"}, R"({"command":"status"})"},
      {{"reload"}, R"({"command":"reload"})"},
      {{"remove", "Echo"}, R"({"command":"remove","name":"Echo"})"},
      {{"debug", "on"}, R"({"command":"debug","on":true})"},
      {{"debug", "off"}, R"({"command":"debug","on":false})"},
      {{"log-level", "error"}, R"({"command":"log-level","priority":"error"})"},
      {{"load", "dynamic A Service_Object * a:_make_A() \"-p 1\"\n"},
       R"({"command":"load","directive":"dynamic A Service_Object * a:_make_A() \"-p 1\"\n"})"},
      {{"load", "\xff\x1b"}, "{\"command\":\"load\",\"directive\":\"\xef\xbf\xbd\\u001b\"}"}};

  for (const auto& [words, expected] : cases) {
    std::string problem;
    const Arguments arguments = read(words, problem);
    ASSERT_EQ("", problem);
    EXPECT_EQ(expected, make_request(*arguments.command, arguments.word));
  }
}

TEST(starterctl_answer, is_refused_unless_it_is_an_object_that_tells_how_it_went)
{
  const std::pair<std::string, const char*> cases[] = {
      {"", "it is no JSON"},
      {"ok", "it is no JSON"},
      {"{\"ok\":true", "it is no JSON"},
      {"{\"ok\":true} {}", "it is no JSON"},
      {"{\"ok\":true,\"text\":\"\xff\"}", "it is no JSON"},
      {std::string(100000, '['), "it is no JSON"},
      {"[]", "it is no JSON object"},
      {"null", "it is no JSON object"},
      {"{}", "the member 'ok' is missing or is no truth value"},
      {"{\"ok\":1}", "the member 'ok' is missing or is no truth value"},
      {"{\"ok\":false}", "the member 'error' is missing or is no text"},
      {"{\"ok\":false,\"error\":[]}", "the member 'error' is missing or is no text"},
      {"{\"ok\":false,\"error\":\"no\"}", ""},
      {"{\"ok\":true,\"new\":{}}", ""}};

  for (const auto& [line, problem] : cases) {
    Answer answer;
    EXPECT_EQ(problem, parse_answer(line, answer)) << line.substr(0, 100);
  }
}

TEST(starterctl_answer, is_repeated_without_control_characters_and_with_the_same_meaning)
{
  const std::string line = "{\"a\":\t\"\x7f \xc2\x80\xc2\x9b \xc3\xbc \\u001b\"}\r";

  const std::string harmless = make_harmless(line);

  EXPECT_EQ("{\"a\": \"\\u007f \\u0080\\u009b \xc3\xbc \\u001b\"} ", harmless);
  EXPECT_EQ(Json::parse(line), Json::parse(harmless));
}

TEST(starterctl_reader, tells_the_first_member_that_is_not_as_it_has_to_be)
{
  const Json object = {{"text", "x"}, {"number", 1.9},       {"flag", true},     {"huge", 1e300},
                       {"list", {1}}, {"names", {"a", "b"}}, {"mixed", {"a", 1}}};
  Reader reader;
  EXPECT_EQ("x", reader.text(object, "text"));
  EXPECT_EQ(1, reader.number(object, "number"));
  EXPECT_TRUE(reader.flag(object, "flag"));
  EXPECT_EQ("a, b", reader.names(object, "names"));
  EXPECT_EQ("", reader.problem());

  const std::pair<void (*)(Reader&, const Json&), const char*> cases[] = {
      {[](Reader& r, const Json& o) { EXPECT_EQ("", r.text(o, "number")); },
       "the member 'number' is missing or is no text"},
      {[](Reader& r, const Json& o) { EXPECT_EQ(0, r.number(o, "text")); },
       "the member 'text' is missing or is no number"},
      {[](Reader& r, const Json& o) { EXPECT_EQ(0, r.number(o, "huge")); },
       "the member 'huge' is missing or is no number of this size"},
      {[](Reader& r, const Json& o) { EXPECT_FALSE(r.flag(o, "none")); },
       "the member 'none' is missing or is no truth value"},
      {[](Reader& r, const Json& o) { EXPECT_TRUE(r.list(o, "list").empty()); },
       "the member 'list' is missing or is no list of objects"},
      {[](Reader& r, const Json& o) { EXPECT_TRUE(r.list(o, "text").empty()); },
       "the member 'text' is missing or is no list"},
      {[](Reader& r, const Json& o) { EXPECT_EQ("", r.names(o, "mixed")); },
       "the member 'mixed' is missing or is no list of texts"},
      {[](Reader& r, const Json&) { EXPECT_EQ("", r.text(Json::array(), "x")); },
       "the member 'x' is missing or is no text"}};
  for (const auto& [read_wrong, problem] : cases) {
    Reader other;
    read_wrong(other, object);
    EXPECT_EQ(problem, other.problem());
    (void)other.text(object, "absent");
    EXPECT_EQ(problem, other.problem()) << "the first one counts";
  }
}

// ---- Finding the socket

TEST(starterctl_sockets, are_those_of_directories_that_have_one)
{
  const Temp_Dir dir;
  for (const char* const name : {"beta", "alpha", "other"})
    std::filesystem::create_directory(dir / name);
  dir.write("gamma/control.socket", "a file");
  EXPECT_THAT(find_components(dir.path()), IsEmpty());
  EXPECT_THAT(find_components(dir / "missing"), IsEmpty());

  const Fake_Control alpha(dir / "alpha/control.socket");
  std::string path;
  EXPECT_EQ("", find_only_socket(dir.path(), path));
  EXPECT_EQ(dir / "alpha/control.socket", path);

  const Fake_Control beta(dir / "beta/control.socket");
  EXPECT_THAT(find_components(dir.path()), ElementsAre("alpha", "beta"));
  EXPECT_EQ("several components run: choose one with -c: alpha, beta", find_only_socket(dir.path(), path));
}

TEST(starterctl_sockets, are_chosen_by_the_component_or_as_the_only_one)
{
  const Temp_Dir dir;
  for (const char* const name : {"beta", "alpha"})
    std::filesystem::create_directory(dir / name);
  std::string problem;
  EXPECT_EQ("starterctl: no component with a control socket is to be seen in " + dir.path() +
                "; -s names another socket\n",
            perform(read({"services"}, problem), dir.path()).err);

  Fake_Control alpha(dir / "alpha/control.socket");
  alpha.answer(R"({"ok":true,"services":[]})");
  EXPECT_EQ("SERVICE  TYPE  STATE  LIBRARY\n", perform(read({"services"}, problem), dir.path()).out);
  EXPECT_EQ("alpha\n", perform(read({"list"}, problem), dir.path()).out);

  Fake_Control beta(dir / "beta/control.socket");
  beta.answer(R"({"ok":true,"services":[]})");
  EXPECT_EQ(NOT_ASKED, perform(read({"services"}, problem), dir.path()).status);
  EXPECT_EQ(DONE, perform(read({"services", "-c", "beta"}, problem), dir.path()).status);
  EXPECT_EQ(1u, beta.requests().size());
  EXPECT_EQ("{\"components\":[\"alpha\",\"beta\"],\"ok\":true}\n",
            perform(read({"list", "--json"}, problem), dir.path()).out);
}

// ---- The execution of a command

TEST(starterctl_command_run, returns_the_status_and_both_streams)
{
  const Command_Run run = run_command(
      {"/bin/sh", "-c", "echo out $A; echo err >&2; exit 7"}, {"A=value"}, [] { return 0; }, in_seconds(60));

  EXPECT_EQ("", run.problem);
  EXPECT_EQ(7, run.status);
  EXPECT_EQ("out value\n", run.out);
  EXPECT_EQ("err\n", run.err);
}

TEST(starterctl_command_run, tells_why_nothing_was_executed)
{
  const Command_Run missing = run_command(
      {"/missing"}, {}, [] { return 0; }, in_seconds(60));
  EXPECT_EQ(127, missing.status);
  EXPECT_EQ("cannot execute /missing: No such file or directory\n", missing.err);

  const Command_Run unprepared = run_command(
      {"/bin/true"}, {}, [] { return errno = EPERM, -1; }, in_seconds(60));
  EXPECT_EQ(127, unprepared.status);
  EXPECT_EQ("cannot execute /bin/true: Operation not permitted\n", unprepared.err);
}

TEST(starterctl_command_run, kills_a_command_that_takes_too_long_or_writes_too_much)
{
  const std::pair<const char*, const char*> cases[] = {
      {"echo $$ >$FILE; exec sleep 1000", "has not ended in time"},
      {"echo $$ >$FILE; exec >&- 2>&-; exec sleep 1000", "has not ended in time"},
      {"echo $$ >$FILE; exec yes", "has written too much"}};

  for (const auto& [script, problem] : cases) {
    const Temp_Dir dir;
    const bool is_endless = std::string(problem) == "has written too much";
    const Command_Run run = run_command(
        {"/bin/sh", "-c", script}, {"PATH=/bin:/usr/bin", "FILE=" + dir / "pid"}, [] { return 0; },
        in_seconds(is_endless ? 60 : 5));

    EXPECT_EQ(problem, run.problem);
    EXPECT_EQ(-1, run.status);
    const std::string pid = read_file(dir / "pid");
    ASSERT_NE("", pid) << "the machine is too slow for this test";
    EXPECT_FALSE(std::filesystem::exists("/proc/" + pid.substr(0, pid.find('\n'))));
  }
}
