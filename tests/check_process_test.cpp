#include "check/finding.h"
#include "tests/support/program_options.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using Texts = std::vector<std::string>;

/// The result of a run of the checker.
struct Outcome
{
  int status; // negative: the number of the signal that ended it
  std::string out;
  std::string err;
  std::string summary = {}; // of a run without findings: the line about that, which is not in `err`
};

// Take the summary out of the standard error stream.
static Outcome without_summary(Outcome outcome)
{
  static const std::regex summary("starter-check: nothing to report .*\n");
  std::smatch match;
  if (std::regex_search(outcome.err, match, summary))
    outcome.summary = match.str();
  outcome.err = std::regex_replace(outcome.err, summary, "");
  return outcome;
}

static std::vector<char*> pointers(Texts& texts)
{
  std::vector<char*> result;
  for (std::string& text : texts)
    result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// Runs the checker in the directory, with the environment of the test and additional variables.
// A wrapper runs the checker in its place.
static Outcome check(const Temp_Dir& dir, Texts args, const std::map<std::string, std::string>& env = {},
                     const Texts& wrapper = {})
{
  args.insert(args.begin(), wrapper.empty() ? "starter-check" : TESTS_CHECKER);
  args.insert(args.begin(), wrapper.begin(), wrapper.end());
  const std::vector<char*> argv = pointers(args);
  const Temp_Dir streams;

  const pid_t pid = fork();
  if (pid == 0) {
    for (const auto& [name, value] : env)
      ::setenv(name.c_str(), value.c_str(), 1);
    dup2(open((streams / "out").c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    dup2(open((streams / "err").c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    if (chdir(dir.path().c_str()) == 0)
      execv(wrapper.empty() ? TESTS_CHECKER : argv[0], argv.data());
    _exit(127);
  }

  int status = 0;
  waitpid(pid, &status, 0);
  return without_summary({WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), read_file(streams / "out"),
                          read_file(streams / "err")});
}

static Texts lines(const std::string& text)
{
  Texts result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    result.push_back(line);
  return result;
}

// The lines of a report, which may be warnings or not.
static Texts without_severity(const std::string& report)
{
  return lines(std::regex_replace(report, std::regex(": warning: "), ": "));
}

// The findings on the command line. There must be no others.
static void expect_findings(const Texts& args, const Texts& findings)
{
  SCOPED_TRACE(testing::PrintToString(args));
  const Temp_Dir dir;
  const Outcome run = check(dir, args);

  Texts expected;
  for (const std::string& finding : findings)
    expected.push_back("command line: " + finding);
  EXPECT_EQ(expected, without_severity(run.out));
  EXPECT_EQ("", run.err);
  EXPECT_EQ(findings.empty() ? 0 : 1, run.status);
}

// The findings in the file "x.conf" of this content, as "LINE: KIND: ...". A file before it may remove services.
static Texts findings_in(const std::string& content, const Texts& args = {}, const std::string& removals = "")
{
  const Temp_Dir dir;
  dir.write("x.conf", content);
  Texts all{"-f", "x.conf"};
  if (!removals.empty())
    all.insert(all.begin(), {"-f", dir.write("removals.conf", removals)});
  all.insert(all.end(), args.begin(), args.end());
  const Outcome run = check(dir, all);

  EXPECT_EQ("", run.err);
  EXPECT_EQ(run.out.empty() ? 0 : 1, run.status);
  Texts findings;
  for (const std::string& line : without_severity(run.out))
    findings.push_back(line.rfind("x.conf:", 0) == 0 ? line.substr(7) : line);
  return findings;
}

// A file that says something and loads nothing.
static const char NOTHING_TO_LOAD[] = "remove Nothing\n";

// What a file before a stream has to remove, so that a hang-up breaks nothing.
static const char REMOVALS[] = "remove S\nremove M\nremove N\n";

static std::string directive(const std::string& service, const std::string& library = "check_plain",
                             const std::string& params = "")
{
  return dynamic_directive(service, library, "_make_Plain", params);
}

// ---- The checker's own options

TEST(starter_check, reports_no_finding_without_arguments)
{
  expect_findings({}, {});
}

TEST(starter_check, tells_its_usage_and_version)
{
  const Temp_Dir dir;

  const Outcome help = check(dir, {"--help"});
  EXPECT_EQ(0, help.status);
  EXPECT_THAT(help.out, StartsWith("Usage: starter-check [--allow-warnings] [--json] "));

  const Outcome version = check(dir, {"--version"});
  EXPECT_EQ(0, version.status);
  EXPECT_THAT(version.out, MatchesRegex("starter-check [0-9.]+ \\(rev .*\\)\n"));
}

TEST(starter_check, ends_with_status_2_when_misused)
{
  const Temp_Dir dir;
  for (const Texts& args : {Texts{"--help", "-d"}, Texts{"--version", "--version"}}) {
    const Outcome run = check(dir, args);
    EXPECT_EQ(2, run.status);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("starter-check: --help and --version stand alone\n", run.err);
  }
}

TEST(starter_check, leaves_options_of_its_own_name_behind_others_to_the_host)
{
  expect_findings({"-d", "--json"}, {"ignored-argument: '--json' is no option of the host; as one of the checker's own "
                                     "it stands before all others"});
}

TEST(starter_check, writes_json_for_tools)
{
  const Temp_Dir dir;
  dir.write("x.conf", "\nremove \"\\\n");

  const Outcome clean = check(dir, {"--json", "-d"});
  EXPECT_EQ(0, clean.status);
  EXPECT_EQ("{\"findings\": [], \"checked\": {\"files\": 0, \"directives\": 0, \"services\": 0}}\n", clean.out);
  EXPECT_EQ("", clean.summary);

  const Outcome run = check(dir, {"--json", "--user", "no such \"user\"", "-f", "x.conf"});
  EXPECT_EQ(1, run.status);
  EXPECT_EQ("{\"findings\": [\n"
            "  {\"kind\": \"unknown-user\", \"severity\": \"error\", \"file\": null, \"line\": null, "
            "\"message\": \"there is no user 'no such \\\"user\\\"'\"},\n"
            "  {\"kind\": \"syntax-error\", \"severity\": \"error\", \"file\": \"x.conf\", \"line\": 2, "
            "\"message\": \"unable to find the end of the string; the rest is not read\"}\n"
            "], \"checked\": {\"files\": 1, \"directives\": 0, \"services\": 0}}\n",
            run.out);
}

TEST(starter_check, tells_in_one_line_what_it_has_looked_at_when_it_finds_nothing)
{
  const Temp_Dir dir;
  dir.write("x.d/a.conf", directive("A") + directive("B") + "suspend A\n");
  dir.write("x.d/b.conf", "remove C\n" + directive("C"));
  const Outcome run = check(dir, {"-f", "x.d", "-S", "resume A"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("", run.out + run.err);
  EXPECT_EQ("starter-check: nothing to report (files: 2, directives: 6, services: 3)\n", run.summary);
  EXPECT_EQ("starter-check: nothing to report (files: 0, directives: 0, services: 0)\n", check(dir, {}).summary);

  for (const char* const quiet : {"-q", "--quiet"})
    EXPECT_EQ("", check(dir, {quiet, "-f", "x.d"}).summary);
  const Outcome with_warnings = check(dir, {"--quiet", "--allow-warnings", "--reactor", "none"});
  EXPECT_EQ(0, with_warnings.status);
  EXPECT_THAT(lines(with_warnings.out), ElementsAre(HasSubstr("unknown-reactor")));
  EXPECT_EQ("", with_warnings.summary);
}

// The options that are listed under a heading of the usage, as program_options() has them.
static std::set<std::string> options_in_usage(const std::string& usage, const std::string& heading)
{
  static const std::regex option("\n  (--?[A-Za-z-]+)(([= ])[A-Z]+)?");
  const std::size_t begin = usage.find(heading) + heading.size();
  const std::string part = usage.substr(begin, usage.find("\n\n", begin) - begin);
  std::set<std::string> options;
  for (std::sregex_iterator i(part.begin(), part.end(), option); i != std::sregex_iterator(); ++i)
    options.insert((*i)[1].str() + ((*i)[2].length() > 0 ? "=" : ""));
  return options;
}

TEST(starter_check, lists_the_options_of_the_host_in_its_usage)
{
  const std::string usage = check(Temp_Dir(), {"--help"}).out;

  std::set<std::string> expected = program_options();
  expected.erase("--thread-pool="); // accepted and dropped
  EXPECT_EQ(expected, options_in_usage(usage, "Options of starter:"));
  EXPECT_THAT(
      options_in_usage(usage, "Options of the checker:"),
      ElementsAre("--allow-warnings", "--compare-files=", "--help", "--json", "--quiet", "--save-files=", "--version"));
}

// That is why the checker lists its options.
TEST(starter_check, stands_in_for_a_host_that_starts_whatever_it_is_asked)
{
  Starter_Process starter({"--help"});

  EXPECT_TRUE(starter.wait_for_event_loop()) << starter.log();
}

TEST(starter_check, lets_warnings_pass_on_request_and_no_errors)
{
  const Temp_Dir dir;
  const std::string warning = "command line: warning: unknown-reactor: ";
  const std::string error = "command line: unknown-user: ";

  EXPECT_EQ(1, check(dir, {"--reactor", "none"}).status);
  const Outcome allowed = check(dir, {"--allow-warnings", "--reactor", "none"});
  EXPECT_EQ(0, allowed.status);
  EXPECT_THAT(lines(allowed.out), ElementsAre(StartsWith(warning)));

  const Outcome refused = check(dir, {"--allow-warnings", "--reactor", "none", "--user", "no-such-user"});
  EXPECT_EQ(1, refused.status);
  EXPECT_THAT(lines(refused.out), ElementsAre(StartsWith(warning), StartsWith(error)));

  const Outcome as_json = check(dir, {"--json", "--allow-warnings", "--reactor", "none"});
  EXPECT_EQ(0, as_json.status);
  EXPECT_THAT(as_json.out, HasSubstr("\"severity\": \"warning\""));
}

TEST(starter_check, reports_files_that_are_new_or_gone_since_their_list_was_saved)
{
  const Temp_Dir dir;
  dir.write("x.d/a.conf", NOTHING_TO_LOAD);
  dir.write("x.d/b c.conf", NOTHING_TO_LOAD);
  dir.write("list", "");
  EXPECT_EQ(0, check(dir, {"--save-files", "list", "-f", "x.d"}).status);
  EXPECT_EQ(std::string("x.d/a.conf\0x.d/b c.conf\0", 24), read_file(dir / "list"));

  const Texts args{"--allow-warnings", "--compare-files", "list", "-f", "x.d"};
  const Outcome same = check(dir, args);
  EXPECT_EQ(0, same.status);
  EXPECT_EQ("", same.out + same.err);

  std::filesystem::rename(dir / "x.d/a.conf", dir / "x.d/d.conf");
  const Outcome renamed = check(dir, args);
  EXPECT_EQ(1, renamed.status);
  EXPECT_THAT(lines(renamed.out),
              ElementsAre(StartsWith("x.d/a.conf: changed-files: is one of the files of the start "),
                          "x.d/d.conf: changed-files: is not one of the files of the start: a "
                          "hang-up does not read it; restart"));
}

// The configuration is full of findings, and its library would hold up a probe for ten seconds.
TEST(starter_check, saves_the_list_of_files_and_does_nothing_else)
{
  const Temp_Dir dir;
  dir.write("x.d/a.conf", "foo\n" + directive("A", "check_hang"));
  const Texts args{"--user", "no-such-user", "--background", "-f", dir / "x.d", "stray"};
  Texts saving = args;
  saving.insert(saving.begin(), {"--save-files", "list"});

  const Outcome run = check(dir, saving);
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("", run.out + run.err);
  EXPECT_EQ(dir / "x.d/a.conf" + '\0', read_file(dir / "list"));

  for (const Texts& other : {Texts{"--json"}, Texts{"--allow-warnings"}, Texts{"--compare-files", "list"}}) {
    Texts mixed = saving;
    mixed.insert(mixed.begin(), other.begin(), other.end());
    const Outcome refused = check(dir, mixed);
    EXPECT_EQ(2, refused.status);
    EXPECT_EQ("starter-check: --save-files checks nothing, and takes no other option of the checker's own\n",
              refused.err);
  }
}

TEST(starter_check, goes_on_without_a_list_of_files_and_not_without_a_place_for_it)
{
  const Temp_Dir dir;

  const Outcome missing = check(dir, {"--compare-files", "/none/list", "-d"});
  EXPECT_EQ(0, missing.status);
  EXPECT_EQ("starter-check: cannot read /none/list, so new files and files that are gone are not found: No such file "
            "or directory\n",
            missing.err);

  const Outcome unwritable = check(dir, {"--save-files", "/none/list", "-d"});
  EXPECT_EQ(2, unwritable.status);
  EXPECT_EQ("starter-check: cannot write the list of files\n", unwritable.err);

  for (const char* const option : {"--save-files", "--compare-files"}) {
    const Outcome run = check(dir, {"--json", option});
    EXPECT_EQ(2, run.status);
    EXPECT_EQ("starter-check: --save-files and --compare-files take the path of a file\n", run.err);
  }
}

// ---- The command line

TEST(starter_check, accepts_what_the_host_uses)
{
  for (const Texts& args :
       {Texts{"--reactor", "tp", "--threads", "2"}, Texts{"--reactor=select", "--threads=1"},
        Texts{"--thr", "2", "--r", "dev_poll"}, Texts{"--thread", "2", "--reactor", "priority"}, Texts{"--background"},
        Texts{"--user", "root", "--primary-group", "0", "--group", "root", "--group=0"}, Texts{"-dn", "-y", "-b"},
        Texts{"-kkey", "-p", "pid", "-s1"}, Texts{"--"}})
    expect_findings(args, {});
}

TEST(starter_check, reports_arguments_that_the_host_ignores)
{
  expect_findings({"--unknown", "stray", "-x"},
                  {"ignored-argument: '--unknown' is ignored: no such option, or more than one of that beginning",
                   "ignored-argument: 'stray' is ignored: it is no option and belongs to none",
                   "ignored-argument: '-x' is ignored: no such option, or more than one of that beginning"});
  expect_findings({"-dxny"}, {"ignored-argument: in '-dxny' these letters are ignored: 'x'"});
  expect_findings({"-d", "--", "-n", "x"}, {"ignored-argument: '-n' is ignored: it stands behind '--'",
                                            "ignored-argument: 'x' is ignored: it stands behind '--'"});
  expect_findings({"--thread-pool", "8"}, {"ignored-argument: '--thread-pool' is ignored together with its value"});
  expect_findings({"--user", "root", "--user=0"},
                  {"ignored-argument: '--user' is ignored: --user is given again later"});
  expect_findings({"-k", "a", "-dkb", "-pc", "-p", "d"},
                  {"ignored-argument: -k 'a' is ignored: it is given again later",
                   "ignored-argument: -p 'c' is ignored: it is given again later"});
  expect_findings({"--reactor="}, {"ignored-argument: --reactor is ignored: its value is empty"});
  expect_findings({"--background=no"},
                  {"ignored-argument: '--background=no' goes to the background whatever follows the equals sign"});
}

TEST(starter_check, suggests_the_option_for_a_configuration_that_is_given_without)
{
  const Temp_Dir dir;
  dir.write("conf.d/x.txt", "");
  dir.write("x.conf", NOTHING_TO_LOAD);
  const std::string ignored = "' is ignored: it is no option and belongs to none";

  EXPECT_THAT(
      lines(check(dir, {"conf.d", "x.conf", "conf.d/x.txt", "none.conf"}).out),
      ElementsAre("command line: warning: ignored-argument: 'conf.d" + ignored + "; '-f conf.d' loads services from it",
                  "command line: warning: ignored-argument: 'x.conf" + ignored + "; '-f x.conf' loads services from it",
                  "command line: warning: ignored-argument: 'conf.d/x.txt" + ignored,
                  "command line: warning: ignored-argument: 'none.conf" + ignored));
}

TEST(starter_check, reports_options_without_their_value)
{
  for (const std::string last : {"--threads", "--reactor", "--user", "--primary-group", "--group", "-f", "-k", "-S"})
    expect_findings({"-d", last}, {"missing-value: '" + last + "' is ignored: its value is missing"});
}

TEST(starter_check, reports_words_that_are_read_twice)
{
  expect_findings({"--user", "-d"}, {"read-twice: '-d' is read twice: as the value of what stands before it, and for "
                                     "itself",
                                     "unknown-user: there is no user '-d'"});
}

TEST(starter_check, reports_thread_counts)
{
  const std::string refused = " threads: it takes 2 or more";
  expect_findings({"--reactor", "tp"}, {"thread-count: 'tp' is refused with 0" + refused});
  expect_findings({"--reactor", "tp", "--threads", "1"}, {"thread-count: 'tp' is refused with 1" + refused});
  expect_findings({"--reactor", "select", "--threads", "4x"}, {"thread-count: '4x' is cut to 4"});
  expect_findings({"--reactor", "select", "--threads", "-2"}, {"thread-count: '-2' is no number and counts as 0"});
  expect_findings({"--reactor", "select", "--threads", "four"}, {"thread-count: 'four' is no number and counts as 0"});
  expect_findings({"--reactor", "select", "--threads="}, {"thread-count: '' is no number and counts as 0"});
  expect_findings({"--reactor", "select", "--threads", "4294967296"},
                  {"thread-count: '4294967296' is too large and counts as 4294967295"});
  expect_findings({"--threads", "4"}, {"thread-count: --threads is ignored without --reactor"});
}

TEST(starter_check, reports_unknown_reactors)
{
  for (const std::string type : {"TP", "thread-pool", "selec", "tp "})
    expect_findings({"--reactor", type, "--threads", "2"},
                    {"unknown-reactor: '" + type + "' is no reactor: select, tp, dev_poll and priority are"});
}

// The host itself tells whether a limit is too low: its reactor does not open, or the program has no descriptor left to
// look at the machine.
TEST(starter_check, reports_a_limit_of_descriptors_that_is_too_low_for_the_reactor)
{
  const std::tuple<const char*, Texts> cases[] = {{"the default reactor", {}},
                                                  {"the reactor 'select'", {"--reactor", "select"}},
                                                  {"the reactor 'tp'", {"--reactor", "tp", "--threads", "2"}},
                                                  {"the reactor 'dev_poll'", {"--reactor", "dev_poll"}},
                                                  {"the reactor 'priority'", {"--reactor", "priority"}}};
  for (const auto& [name, args] : cases) {
    unsigned too_low = 0;
    for (const std::string limit : {"4", "5", "6", "7", "8"}) {
      SCOPED_TRACE(name + (" with " + limit));
      const Temp_Dir dir;
      const Texts wrapper{"/bin/sh", "-c",
                          "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&- && ulimit -n " + limit + " && exec \"$0\" \"$@\""};
      const Outcome run = check(dir, args, {}, wrapper);
      Start_Options options;
      options.wrapper = wrapper;
      Starter_Process starter(args, options);
      ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

      const bool is_too_low = starter.count("Too many open files") != 0;
      too_low += is_too_low ? 1 : 0;
      EXPECT_EQ(is_too_low ? "command line: descriptor-limit: the limit of " + limit + " descriptors is too low for " +
                                 name + " and a single service\n"
                           : "",
                run.out)
          << starter.log();
    }
    EXPECT_LT(0u, too_low);
    EXPECT_GT(5u, too_low);
  }
}

TEST(starter_check, reports_unknown_accounts)
{
  expect_findings({"--user", "no-such-user"}, {"unknown-user: there is no user 'no-such-user'"});
  expect_findings({"--user", "4294967290"}, {"unknown-user: there is no user '4294967290'"});
  expect_findings({"--primary-group", "no-such", "--group", "root", "--group", "-1"},
                  {"unknown-group: there is no group 'no-such'", "unknown-group: there is no group '-1'"});
}

TEST(starter_check, reports_values_that_do_not_reach_the_host_unchanged)
{
  expect_findings({"-k", "a\tb"}, {"altered-value: -k 'a\\x09b': the framework reads this value as 'a' 'b'"});
  expect_findings({"-p", ""},
                  {"altered-value: -p '': an empty value vanishes, and the option takes the word after it"});
  expect_findings({"-p", "\n", "-d"},
                  {"altered-value: -p '\\x0a': white space vanishes, and the option takes the word after it"});
  expect_findings({"-k", "\"a\""}, {"altered-value: -k '\"a\"': the framework reads this value as 'a'"});
}

TEST(starter_check, reports_what_an_open_quote_takes_along)
{
  const std::string open = "': a quote in it is not closed, and takes in the words after it up to the next such quote";
  expect_findings(
      {"-k", "it's", "-d", "-S", "remove A"},
      {"altered-value: -k 'it's" + open,
       "ignored-argument: '-d' does not get to the configurator: a quote before it is not closed",
       "ignored-argument: '-S remove A' does not get to the configurator: a quote before it is not closed"});
  expect_findings({"-k", "it's", "-p", "o'clock", "-S", "remove A"},
                  {"altered-value: -k 'it's" + open,
                   "altered-value: -p 'o'clock': the framework joins it to a value before it, as 'its -p oclock'"});
}

TEST(starter_check, tells_which_of_two_values_is_in_effect)
{
  expect_findings({"-k", "a", "-k", "it's"}, {"altered-value: -k 'it's': a quote in it is not closed, and takes in the "
                                              "words after it up to the next such quote"});
}

TEST(starter_check, reports_a_variable_in_the_name_of_a_file_of_a_directory)
{
  const Temp_Dir dir;
  dir.write("x.d/$SET_HERE.conf", NOTHING_TO_LOAD);
  EXPECT_THAT(lines(check(dir, {"-f", "x.d"}, {{"SET_HERE", "a"}}).out),
              ElementsAre("command line: altered-value: -f 'x.d/$SET_HERE.conf': the framework replaces a variable in "
                          "the name of this file",
                          "x.d/a.conf: unreadable-file: cannot be read: No such file or directory; no later -f and no "
                          "-S is processed"));
  EXPECT_EQ("", check(dir, {"-f", "x.d"}).out);
}

TEST(starter_check, reports_variables_of_values_that_are_not_set)
{
  expect_findings({"-k", "$NOT_SET_HERE"},
                  {"variable-not-set: -k '$NOT_SET_HERE': $NOT_SET_HERE is not set and stays as it is"});

  // The quotes are taken out before the name is read.
  const Temp_Dir dir;
  EXPECT_EQ("command line: altered-value: -k '$SET_\"HERE\"': the framework reads this value as '$SET_HERE'\n",
            check(dir, {"-k", "$SET_\"HERE\""}, {{"SET_HERE", "a"}}).out);
  dir.write("x.conf", "remove\n");
  EXPECT_EQ("x.conf:1: syntax-error: the name of a service expected, not the end\n",
            check(dir, {"-f", "$SET_HERE"}, {{"SET_HERE", "x.conf"}}).out);
}

TEST(starter_check, looks_at_the_variables_of_an_inline_directive_as_the_framework_replaces_them)
{
  const Temp_Dir dir;
  const std::map<std::string, std::string> env{{"SET_HERE", "1"}};
  const std::string name = "command line: warning: variable-not-set: service 'A', parameter '$NOT_SET_HERE': ";

  EXPECT_EQ("", check(dir, {"-S", directive("A", "check_plain", "-p $SET_HERE -q $SET_HERE")}, env).out);
  EXPECT_EQ(name + "$NOT_SET_HERE is not set and stays as it is\n",
            check(dir, {"-S", directive("A", "check_plain", "-p $SET_HERE -q $NOT_SET_HERE")}, env).out);
  EXPECT_THAT(check(dir, {"-S", directive("A", "check_plain", '$' + std::string(20000, 'X'))}).out,
              HasSubstr("': the name of a variable is too long for the framework\n"));
}

TEST(starter_check, reports_signals_that_cannot_be_caught)
{
  for (const std::string text : {"0", "HUP", "9", "19", "65", "-1"})
    expect_findings({"-s", text}, {"bad-signal: -s '" + text +
                                   "' is no number of a signal that can be caught: no service is loaded"});
}

TEST(starter_check, looks_at_the_signal_that_the_host_gets)
{
  const Temp_Dir dir;
  const std::string finding =
      "command line: bad-signal: -s '0' is no number of a signal that can be caught: no service is loaded\n";
  EXPECT_EQ(finding, check(dir, {"-s", "$SIGNAL"}, {{"SIGNAL", "0"}}).out);
  EXPECT_EQ("", check(dir, {"-s", "$SIGNAL"}, {{"SIGNAL", "1"}}).out);
  EXPECT_EQ("command line: altered-value: -s '': an empty value vanishes, and the option takes the word after it\n",
            check(dir, {"-s", ""}).out);
}

TEST(starter_check, reports_values_that_look_like_options)
{
  const std::string taken = "command line: warning: read-twice: the configurator takes ";
  const Temp_Dir dir;
  dir.write("x.conf", NOTHING_TO_LOAD);
  EXPECT_EQ(taken + "'-s 1' out of a value\n", check(dir, {"-k", "-s1"}).out);
  EXPECT_EQ(taken + "'-b' out of a value\n", check(dir, {"-k", "-b"}).out);
  EXPECT_EQ(taken + "'-f x.conf' out of a value\n", check(dir, {"-p", "-fx.conf"}).out);
  EXPECT_EQ("", check(dir, {"-p", "-x"}).out);
}

TEST(starter_check, reports_options_that_are_lost_in_a_strict_environment)
{
  const std::string lost = " does not get to the configurator: POSIXLY_CORRECT is set, and a value before it ends the "
                           "options\n";
  const std::map<std::string, std::string> env{{"POSIXLY_CORRECT", "1"}};
  const Temp_Dir dir;
  dir.write("x.conf", NOTHING_TO_LOAD);

  EXPECT_EQ("command line: warning: ignored-argument: '-f x.conf'" + lost,
            check(dir, {"-p", "pid", "-f", "x.conf"}, env).out);
  EXPECT_EQ("command line: warning: ignored-argument: '-p pid'" + lost,
            check(dir, {"-f", "x.conf", "-p", "pid"}, env).out);
  EXPECT_EQ("", check(dir, {"-f", "x.conf"}, env).out);
  EXPECT_EQ("", check(dir, {"-p", "pid", "-f", "x.conf"}).out);

  Start_Options options;
  options.env = env;
  const std::string file = dir.write("y.conf", "remove\n");
  Starter_Process starter({"-p", dir / "pid", "-f", file}, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_EQ(0u, starter.count("syntax error")) << starter.log();
}

// ---- Files

TEST(starter_check, reports_a_file_that_cannot_be_read_and_none_after_it)
{
  const Temp_Dir dir;
  dir.write("x.conf", "remove\n");

  const Outcome run = check(dir, {"-f", "missing.conf", "-f", "x.conf", "-S", "remove"});
  EXPECT_EQ("missing.conf: unreadable-file: cannot be read: No such file or directory; no later -f and no -S is "
            "processed\n",
            run.out);
  EXPECT_EQ(1, run.status);
}

TEST(starter_check, reports_a_directory_that_only_a_variable_names)
{
  const Temp_Dir dir;
  dir.write("x.conf", "foo\n");
  const std::string left_out =
      ": unreadable-file: cannot be read: Is a directory; the host leaves it out, with an error record, and goes on";

  EXPECT_THAT(lines(check(dir, {"-f", "$CONF_DIR", "-f", "x.conf"}, {{"CONF_DIR", dir.path()}}).out),
              ElementsAre(dir.path() + left_out, "x.conf:1: syntax-error: a directive expected, not 'foo'"));
  std::filesystem::create_directory(dir / "svc.conf");
  EXPECT_THAT(lines(check(dir, {"-S", "foo"}).out),
              ElementsAre("./svc.conf" + left_out, "command line: syntax-error: a directive expected, not 'foo'"));
}

TEST(starter_check, reports_a_file_that_opens_and_cannot_be_read)
{
  const Temp_Dir dir;
  EXPECT_EQ("/proc/self/mem: unreadable-file: cannot be read: Input/output error; the host leaves it out, with an "
            "error record, and goes on\n",
            check(dir, {"-f", "/proc/self/mem"}).out);
}

// Nobody writes to the pipe: the checker would wait for ever.
TEST(starter_check, does_not_look_into_pipes_and_devices)
{
  const Temp_Dir dir;
  ASSERT_EQ(0, mkfifo((dir / "pipe").c_str(), 0600));
  dir.write("x.conf", "foo\n");

  const std::string unlooked =
      ": unreadable-file: is no regular file: the host reads it, and the checker does not look into it";
  EXPECT_THAT(lines(check(dir, {"-f", "pipe", "-f", "/dev/zero", "-f", "/dev/null", "-f", "x.conf"}).out),
              ElementsAre("pipe" + unlooked, "/dev/zero" + unlooked,
                          "x.conf:1: syntax-error: a directive expected, not 'foo'"));
}

TEST(starter_check, reads_the_default_file_when_there_is_one)
{
  const Temp_Dir dir;
  EXPECT_EQ(0, check(dir, {"-d"}).status);

  dir.write("svc.conf", "\nfoo\n");
  EXPECT_EQ("./svc.conf:2: syntax-error: a directive expected, not 'foo'\n", check(dir, {"-d"}).out);
  dir.write("x.conf", NOTHING_TO_LOAD);
  EXPECT_EQ("", check(dir, {"-f", "x.conf"}).out);
}

TEST(starter_check, reports_what_is_passed_over_in_a_directory)
{
  Temp_Dir dir;
  dir.write("d/a.conf", NOTHING_TO_LOAD);
  dir.write("d/c.txt", "dynamic\n");
  dir.write("d/d.conf/e.conf", "dynamic\n");
  std::filesystem::create_symlink("nowhere", dir / "d/b.conf");
  std::filesystem::create_directory(dir / "empty");

  const std::string passed_over = ": unreadable-file: is passed over: it is no regular file, and leads to none";
  EXPECT_THAT(lines(check(dir, {"-f", "empty", "-f", "d"}).out),
              ElementsAre("empty: empty-directory: no regular file in it has a name that ends in .conf",
                          "d/b.conf" + passed_over, "d/d.conf" + passed_over));
  EXPECT_THAT(lines(check(dir, {"-f", "d/"}).out), ElementsAre("d/b.conf" + passed_over, "d/d.conf" + passed_over));
}

TEST(starter_check, reports_files_without_a_directive)
{
  const std::string finding = ": warning: empty-file: has no directive in it, so nothing is loaded from it";
  const Temp_Dir dir;
  dir.write("x.d/a.conf", "");
  dir.write("x.d/b.conf", "# a comment\n\n \t# another");
  dir.write("x.d/c.conf", "foo\n");
  dir.write("svc.conf", "\n");
  EXPECT_THAT(lines(check(dir, {"-f", "x.d", "-f", "/dev/null", "-S", ""}).out),
              ElementsAre(HasSubstr("altered-value"), "x.d/a.conf" + finding, "x.d/b.conf" + finding,
                          "x.d/c.conf:1: syntax-error: a directive expected, not 'foo'"));
  EXPECT_EQ("./svc.conf" + finding + '\n', check(dir, {}).out);
  EXPECT_EQ(0, check(dir, {"--allow-warnings"}).status);
}

TEST(starter_check, reports_files_whose_names_almost_end_as_they_should)
{
  const Temp_Dir dir;
  dir.write("d/right.conf", NOTHING_TO_LOAD);
  Texts expected;
  for (const char* const name : {"a.config", "b.CONF", "c.cnf"}) {
    dir.write(std::string("d/") + name, "foo\n");
    expected.push_back(std::string("d/") + name +
                       ": warning: misnamed-file: is passed over: its name does not end in "
                       ".conf");
  }
  for (const char* const name : {"right.conf~", "right.conf.bak", "README", "notes.txt", "x.config/y"})
    dir.write(std::string("d/") + name, "foo\n");

  const Outcome run = check(dir, {"--allow-warnings", "-f", "d"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(expected, lines(run.out));
}

TEST(starter_check, reads_the_files_of_a_directory_in_order)
{
  const Temp_Dir dir;
  dir.write("x.d/b.conf", directive("A"));
  dir.write("x.d/a.conf", directive("A"));
  dir.write("x.d/c.txt", "foo\n");

  EXPECT_EQ("x.d/b.conf:1: warning: duplicate-service: service 'A' takes the place of the one in x.d/a.conf:1\n",
            check(dir, {"-f", "x.d"}).out);
  EXPECT_THAT(
      lines(check(dir, {"-f", "x.d", "-f", "x.d"}).out),
      testing::Contains("x.d/a.conf: warning: repeated-file: is processed again, so that its services are replaced by "
                        "new ones"));
}

TEST(starter_check, looks_for_files_where_the_host_does_in_the_background)
{
  const Temp_Dir dir;
  dir.write("x.conf", NOTHING_TO_LOAD);
  EXPECT_EQ(0, check(dir, {"-f", "x.conf"}).status);
  EXPECT_THAT(check(dir, {"--background", "-f", "x.conf"}).out, StartsWith("x.conf: unreadable-file: "));
  EXPECT_THAT(check(dir, {"-b", "-f", "x.conf"}).out, StartsWith("x.conf: unreadable-file: "));
}

TEST(starter_check, reports_syntax_errors_and_reads_on)
{
  EXPECT_THAT(findings_in("# comment\ndynamic A foo\n" + directive("A") + "static\n"),
              ElementsAre("2: syntax-error: Service_Object, Module or STREAM expected, not 'foo'",
                          "4: syntax-error: the name of a service expected, not the end"));
}

// Each text is a file of its own, in which A and B stand for directives. The host is started with it, and the services
// that start have these names and arguments; a service without arguments has no name.
TEST(starter_check, explains_strings_and_characters)
{
  const std::string library = service_library("recorder");
  const std::string factory = library + ":_make_Recorder()";
  const std::string last_quote = "1: altered-value: service 'A', parameters: a string goes up to the last quote of its "
                                 "line, and ";
  const std::string long_string = " expected: a string goes up to the last quote of its line, and this one is \"" +
                                  factory.substr(0, library.size()) + "\":_make_Recorder() \"x\"";
  const std::string word = "1: syntax-error: a directive expected, not '";
  const std::string no_end = "1: syntax-error: unable to find the end of the string";
  const std::string not_read = "the rest is not read; service 'A' starts without arguments";
  const std::string alone = "; service 'A' starts without arguments";
  const std::string begins = "1: altered-value: service 'A', parameters: the string begins in a word, behind the first "
                             "byte of that";
  const std::string nameless = "A nameless service";
  const std::tuple<std::string, Texts, Texts> cases[] = {
      {"@A \"x\"\n@B \"y\"\n", {}, {"x", "y"}},
      {"@A 'x' @B \"y\"\n", {}, {"x", "y"}},
      {"@A \"x\" @B \"y\"\n",
       {"1: lost-directive: service 'A', parameters: a string goes up to the last quote of its line, and takes in the "
        "directive behind it: that one needs a line of its own"},
       {"x dynamic B Service_Object * " + factory + " y"}},
      {"@A \"x\" # \"c\"\n@B \"y\"\n", {last_quote + "takes in the comment behind it"}, {"x # c", "y"}},
      {"@A \"x \"remove that\" #1\"\n",
       {"1: inner-quote: service 'A', parameters: a string goes up to the last quote of its line, and this one holds "
        "quotes of its own kind"},
       {"x [remove that] [#1]"}},
      {"@A \"x don't \"q\"\"\n",
       {"1: altered-value: service 'A', parameters: the word with 't \"q\" is left out: the quote is not closed"},
       {"x"}},
      {"dynamic A Service_Object * \"" + library + "\":_make_Recorder() \"x\"\n@B \"y\"\n",
       {"1: syntax-error: ':' after the library" + long_string},
       {"y"}},
      {"\"" + library + "\":_make_Recorder() \"x\"\n@B \"y\"\n", {"1: syntax-error: a directive" + long_string}, {"y"}},
      {"\xef\xbb\xbf@A \"x\"\n@B \"y\"\n",
       {word + "\\xef\\xbb\\xbfdynamic': a byte-order mark (\\xef\\xbb\\xbf) belongs to this word"},
       {"y"}},
      {"\xef\xbb\xbf# comment\n@B \"y\"\n", {}, {"y"}},
      {"@A\xc2\xa0\"x\"\n@B \"y\"\n", {begins + ": a no-break space (\\xc2\\xa0) is no blank"}, {nameless, "y"}},
      {"@A x\"y z\n@B \"y\"\n", {begins}, {nameless, "y"}},
      {"@A \"x\"\xc2\xa0\n@B \"y\"\n",
       {word + "\\xc2\\xa0': a no-break space (\\xc2\\xa0) belongs to this word"},
       {"x", "y"}},
      {"@A \"x\xc2\xa0y\"\n@B \"y\"\n",
       {no_end + ": a no-break space (\\xc2\\xa0) in it ends the search; " + not_read},
       {nameless}},
      {"@A \"x\ty\"\n@B \"y\"\n", {no_end + ": a tab (\\x09) in it ends the search; " + not_read}, {nameless}},
      {"@A \"x\" \"a\tb\"\n@B \"y\"\n", {last_quote + "a tab (\\x09) ends the search for that"}, {nameless, "y"}},
      {"@A \"x \"a b\"\" # caf\xc3\xa9\n@B \"y\"\n",
       {"1: inner-quote: service 'A', parameters: a string goes up to the last quote of its line, and this one holds "
        "quotes of its own kind"},
       {"x [a b]", "y"}},
      {"@A \xe2\x80\x9cx it's\xe2\x80\x9d\n@B \"y\"\n",
       {word + "\\xe2\\x80\\x9cx': a typographic quote (\\xe2\\x80\\x9c) belongs to this word" + alone},
       {nameless, "y"}},
      {"@A \xe2\x80\x9cx y\xe2\x80\x9d\n@B \"y\"\n",
       {word + "\\xe2\\x80\\x9cx': a typographic quote (\\xe2\\x80\\x9c) belongs to this word" + alone},
       {nameless, "y"}},
      {"@A \"\xc3\xa9\"\n@B \"y\"\n",
       {no_end + ": a character that is not printable ASCII (\\xc3\\xa9) in it ends the search; " + not_read},
       {nameless}},
      {"@A \"x\n@B \"y\"\n", {no_end + "; " + not_read}, {nameless}},
      {"remove \"\n", {no_end + "; the rest is not read"}, {}},
      {"@A {\n@B \"y\"\n}\n", {word + "{': modules need 'stream dynamic'"}, {nameless, "y"}}};

  for (const auto& [pattern, findings, started] : cases) {
    const std::string text =
        std::regex_replace(std::regex_replace(pattern, std::regex("@A"), "dynamic A Service_Object * " + factory),
                           std::regex("@B"), "dynamic B Service_Object * " + factory);
    SCOPED_TRACE(text);
    EXPECT_EQ(findings, findings_in(text));

    const Temp_Dir dir;
    Starter_Process starter({"-f", dir.write("x.conf", text)});
    EXPECT_TRUE(starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    Texts names;
    for (const std::string& line : lines(starter.log()))
      if (const std::size_t at = line.find(" starts."); at != std::string::npos)
        names.push_back(line.substr(0, at) + line.substr(at + 8));
    EXPECT_EQ(started, names);
  }
}

// ---- Services

TEST(starter_check, finds_nothing_wrong_with_a_service_and_does_not_initialise_it)
{
  const Temp_Dir dir;
  dir.write("x.conf", directive("A", "check_plain", "-p 1 $TESTS_INIT_WITNESS"));
  const std::map<std::string, std::string> env{{"TESTS_INIT_WITNESS", dir / "witness"}};

  const Outcome run = check(dir, {"--reactor", "tp", "--threads", "4", "-f", "x.conf"}, env);

  EXPECT_EQ(0, run.status);
  EXPECT_EQ("", run.out);
  EXPECT_FALSE(std::filesystem::exists(dir / "witness"));

  Start_Options options;
  options.env = env;
  Starter_Process starter({"-f", dir / "x.conf"}, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_TRUE(std::filesystem::exists(dir / "witness")); // the host itself writes the file
}

// The reason when there is no library under any of the names that the framework tries.
static std::string absent(const Texts& names)
{
  std::string reason;
  for (const std::string& name : names)
    reason += (reason.empty() ? "" : "; ") + name + ": cannot open shared object file: No such file or directory";
  return reason;
}

TEST(starter_check, finds_libraries_where_the_loader_does)
{
  const Temp_Dir dir;
  dir.write("x.conf", "dynamic A Service_Object * check_plain:_make_Plain()\n");

  EXPECT_EQ("x.conf:1: library-not-loaded: service 'A': library 'check_plain': " +
                absent({"check_plain", "check_plain.so", "libcheck_plain.so"}) + '\n',
            check(dir, {"-f", "x.conf"}).out);
  EXPECT_EQ(
      "", check(dir, {"-f", "x.conf"}, {{"LD_LIBRARY_PATH", std::filesystem::path(service_library("x")).parent_path()}})
              .out);
}

TEST(starter_check, reports_libraries_that_do_not_load)
{
  const Temp_Dir dir;
  const std::string text = dir.write("libtext.so", "no library\n");
  const std::string prefix = ": library-not-loaded: service 'A': library '";

  EXPECT_THAT(findings_in("dynamic A Service_Object * " + text + ":_make_A()\n"),
              ElementsAre('1' + prefix + text + "': " + text + ": file too short"));

  const std::string undefined = service_library("check_undefined");
  EXPECT_THAT(
      findings_in('\n' + directive("A", "check_undefined")),
      ElementsAre('2' + prefix + undefined + "': " + undefined + ": undefined symbol: variable_that_nobody_defines"));
  EXPECT_THAT(findings_in(directive("A", "check_crash") + directive("B")),
              ElementsAre('1' + prefix + service_library("check_crash") +
                          "': loading it ends the process with signal 6 (Aborted)"));
  EXPECT_THAT(findings_in("dynamic A Service_Object * \"\":_make_A()\n"),
              ElementsAre('1' + prefix + "': " + absent({".so", "lib.so"})));
  EXPECT_THAT(findings_in("dynamic A Service_Object * foo-7.0.8:_make_A()\n"),
              ElementsAre('1' + prefix + "foo-7.0.8': " + absent({"foo-7.0.8"}) +
                          "; '.8' is taken for the extension of a file: give its full name"));
}

TEST(starter_check, keeps_the_output_of_libraries_out_of_its_own)
{
  EXPECT_THAT(findings_in(directive("A", "check_talk")), ElementsAre());
}

TEST(starter_check, reports_missing_factories)
{
  const std::string library = service_library("check_plain");
  EXPECT_THAT(findings_in(dynamic_directive("A", "check_plain", "_make_No")),
              ElementsAre("1: missing-factory: service 'A': factory '_make_No' of library '" + library +
                          "': " + library + ": undefined symbol: _make_No"));
  EXPECT_THAT(findings_in("dynamic A Service_Object * :_make_No()\n"),
              ElementsAre("1: missing-factory: service 'A': no static factory '_make_No'"));
}

// Each text is a file of its own. The host is started with it, and must end as the checker says. In the last text the
// function is there when all libraries are loaded, and is called before that: the checker initialises no service.
TEST(starter_check, reports_functions_that_no_library_has)
{
  const std::string library = service_library("incomplete");
  const std::string incomplete = dynamic_directive("A", "incomplete", "_make_Incomplete");
  const std::string supplier = dynamic_directive("B", "supplier", "_make_Supplier");
  const std::string finding = "missing-function: service 'A': library '" + library + "': " + library +
                              ": undefined symbol: function_that_nobody_defines; the host loads it, and ends with "
                              "status 127 when it calls this function";
  const std::tuple<std::string, Texts, bool> cases[] = {{incomplete, {"1: " + finding}, true},
                                                        {directive("C") + incomplete, {"2: " + finding}, true},
                                                        {supplier + incomplete, {}, false},
                                                        {incomplete + supplier, {}, true}};

  for (const auto& [text, findings, is_fatal] : cases) {
    SCOPED_TRACE(text);
    EXPECT_THAT(findings_in(text), testing::ElementsAreArray(findings));

    const Temp_Dir dir;
    Starter_Process starter({"-f", dir.write("x.conf", text)});
    EXPECT_EQ(!is_fatal, starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGTERM);
    EXPECT_EQ(is_fatal ? 127 : 0, starter.wait_status()) << starter.log();
  }
}

// Each line is a file of its own. The host is started with it, and must behave as the checker says.
TEST(starter_check, reports_functions_named_as_objects_and_objects_named_as_functions)
{
  const std::string factory = directive("A");
  const std::string function = std::regex_replace(factory, std::regex("\\(\\)"), "");
  const std::string object = std::regex_replace(function, std::regex("_make_Plain"), "plain_object");
  const std::string call = std::regex_replace(factory, std::regex("_make_Plain"), "plain_object");
  const std::string prefix = "1: missing-factory: service 'A': '";
  const std::tuple<std::string, std::vector<std::string>, bool> cases[] = {
      {factory, {}, false},
      {function, {prefix + "_make_Plain' is a function: without '()' the host takes it for an object and ends"}, true},
      {object, {}, false},
      {call, {prefix + "plain_object' is an object: with '()' the host calls it and ends"}, true}};

  for (const auto& [text, findings, is_fatal] : cases) {
    SCOPED_TRACE(text);
    EXPECT_THAT(findings_in(text), testing::ElementsAreArray(findings));

    Temp_Dir dir;
    Starter_Process starter({"-f", dir.write("x.conf", text)});
    EXPECT_EQ(!is_fatal, starter.wait_for_record("is started.")) << starter.log();
    EXPECT_EQ(is_fatal ? 1u : 0u, starter.count("the back trace:")) << starter.log();
  }
}

TEST(starter_check, reports_a_service_that_is_named_twice)
{
  EXPECT_THAT(findings_in(directive("A") + directive("B") + directive("A")),
              ElementsAre("3: duplicate-service: service 'A' takes the place of the one in x.conf:1"));
  EXPECT_THAT(findings_in(directive("A"), {"-S", directive("A", "check_talk")}),
              ElementsAre("command line: duplicate-service: service 'A' takes the place of the one in x.conf:1"));
  EXPECT_THAT(findings_in(directive("A") + "remove A\n" + directive("A")), ElementsAre());
}

TEST(starter_check, reports_a_file_that_has_the_name_of_a_service)
{
  const Temp_Dir dir;
  dir.write("x.conf", directive("echo"));
  dir.write("echo", directive("echo") + "suspend A\n");
  EXPECT_THAT(lines(check(dir, {"-f", "x.conf", "-f", "echo", "-S", "resume echo"}).out),
              ElementsAre("echo: unreadable-file: is not read: there is a service of this name by then"));
  EXPECT_THAT(lines(check(dir, {"-f", "echo", "-f", "x.conf"}).out),
              ElementsAre("echo:2: unknown-service: there is no service 'A' by then",
                          "x.conf:1: warning: duplicate-service: service 'echo' takes the place of the one in echo:1"));
}

TEST(starter_check, reports_services_that_are_not_there)
{
  EXPECT_THAT(findings_in("suspend A\n" + directive("A") + "suspend A\nresume A\nremove A\nremove A\nstatic B\n"),
              ElementsAre("1: unknown-service: there is no service 'A' by then",
                          "7: unknown-service: there is no service 'B' by then"));
}

// A library that a directive loads provides its static services as factories only. A preloaded library provides them as
// services, too.
TEST(starter_check, finds_static_services_where_the_host_does)
{
  const std::string load = dynamic_directive("A", "static_service", "_make_Static_Service");
  const std::string service = "static Static_Service\n";
  const std::string factory = "dynamic B Service_Object * :Static_Service()\n";
  const std::string no_service = ": unknown-service: there is no service 'Static_Service' by then";
  const std::string no_factory = ": missing-factory: service 'B': no static factory 'Static_Service'";
  EXPECT_THAT(findings_in(service + load), ElementsAre('1' + no_service));
  EXPECT_THAT(findings_in(load + service), ElementsAre('2' + no_service));
  EXPECT_THAT(findings_in(factory + load), ElementsAre('1' + no_factory));
  EXPECT_THAT(findings_in(load + factory), ElementsAre());
  EXPECT_THAT(findings_in(load + factory + service), ElementsAre('3' + no_service));

  const Temp_Dir dir;
  dir.write("x.conf", service + factory);
  EXPECT_EQ("", check(dir, {"-f", "x.conf"}, {{"LD_PRELOAD", service_library("static_service")}}).out);

  Starter_Process starter({"-f", dir.write("y.conf", service + factory + load + service + factory)});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_EQ(2u, starter.count("service 'Static_Service' was not located")) << starter.log();
  EXPECT_EQ(2u, starter.count("The static service starts.")) << starter.log(); // A, and the second B
}

// Each line is a file of its own. The host is started with it, and must behave as the checker says.
TEST(starter_check, reports_modules_of_streams_at_which_the_host_ends)
{
  const std::string stream =
      "stream dynamic S STREAM * " TESTS_BUILT_EXAMPLES_DIR
      "/libstream.so:_make_Pipeline() { dynamic M Module * " TESTS_BUILT_EXAMPLES_DIR "/libstream.so:_make_Printer() ";
  const std::string no_stream = "1: unknown-service: there is no service 'S' by then";
  const std::string error = "1: syntax-error: a directive expected, not 'foo'";
  const std::string ends = "fatal-directive: the host ends here, with a record of a fault: ";
  const std::tuple<std::string, std::vector<std::string>, bool> cases[] = {
      {"stream S { remove M }", {"1: " + ends + "there is no stream 'S' before it"}, true},
      {"stream S { static M }", {"1: " + ends + "'M' is no module of a stream that is there"}, true},
      {"stream S { suspend M }", {no_stream}, false},
      {"stream S { remove M foo }", {error, "1: " + ends + "there is no stream 'S' before it"}, true},
      {"stream S { static M foo }", {error, "1: " + ends + "'M' is no module of a stream that is there"}, true},
      {"stream S { suspend M foo }", {error}, false},
      {stream + "remove M foo }", {error, "1: " + ends + "there is no stream 'S' before it"}, true},
      {stream + "remove M }", {"1: " + ends + "there is no stream 'S' before it"}, true},
      {stream + "static M }", {"1: " + ends + "'M' is no module of a stream that is there"}, true},
      {std::regex_replace(stream, std::regex("STREAM \\*"), "Service_Object *") + "}",
       {"1: " + ends + "'S' is no STREAM"},
       true},
      {std::regex_replace(stream, std::regex("Module \\*"), "Service_Object *") + "}",
       {"1: " + ends + "'M' is no Module"},
       true},
      {stream + "}\nstream S { remove M }", {}, false},
      {stream + "}\nstream S { remove N }", {}, false},
      {stream + "}\nstream S { static N }", {"2: " + ends + "'N' is no module of a stream that is there"}, true}};

  for (const auto& [text, findings, is_fatal] : cases) {
    SCOPED_TRACE(text);
    EXPECT_THAT(findings_in(text + '\n', {}, REMOVALS), testing::ElementsAreArray(findings));

    Temp_Dir dir;
    Starter_Process starter({"-f", dir.write("x.conf", text + '\n')});
    EXPECT_EQ(!is_fatal, starter.wait_for_record("is started.")) << starter.log();
    EXPECT_EQ(is_fatal ? 1u : 0u, starter.count("the back trace:")) << starter.log();
  }
}

// A directory for each case. The host is started with it, gets hang-ups and is stopped, and must end with a fault if
// the checker says so.
TEST(starter_check, reports_streams_that_break)
{
  const std::string library = TESTS_BUILT_EXAMPLES_DIR "/libstream.so";
  const std::string m = "dynamic M Module * " + library + ":_make_Printer()\n";
  const std::string n = "dynamic N Module * " + library + ":_make_Printer()\n";
  const std::string s = "stream dynamic S STREAM * " + library + ":_make_Pipeline() ";
  const std::string t = "stream dynamic T STREAM * " + library + ":_make_Pipeline() ";
  const std::string both = s + "{\n" + m + n + "}\n";
  const std::string error = ": broken-stream: ";
  const std::string end = "; the host then ends with a record of a fault or hangs, at the latest when it is stopped";
  const std::string in_order = "; remove the stream before its modules";
  const auto again = [&](const std::string& module, const std::string& stream) {
    return error + '\'' + module + "' is pushed onto '" + stream + "' and has been on a stream before" + end;
  };
  const auto again_on_reload = [&](const std::string& module) {
    return error + "on the first hang-up, '" + module + "' is pushed onto 'S' and has been on a stream before" + end +
           "; remove 'S' and then all of its modules in a file before this one";
  };
  const std::string duplicate = ": duplicate-service: service 'S' is not loaded: the one in x.d/2.conf:1 stays";
  const std::string cut_off =
      ": ignored-module: 'N' is not loaded: within braces, modules have to stand behind 'resume' and 'remove'";
  const std::tuple<std::string, std::string, Texts> cases[] = {
      {"remove S\nremove M\nremove N\n", both, {}},
      {"remove S\nremove N\nremove M\n", both, {}},
      {NOTHING_TO_LOAD, both, {"2.conf:2" + again_on_reload("M")}},
      {"remove S\n", both, {"2.conf:2" + again_on_reload("M")}},
      {"remove S\nremove M\n", both, {"2.conf:3" + again_on_reload("N")}},
      {"remove M\nremove N\n",
       both,
       {"1.conf:1" + error + "on the first hang-up, 'M' goes while it is on the stream 'S'" + end + in_order}},
      {"remove N\nremove M\nremove S\n",
       both,
       {"1.conf:1" + error + "on the first hang-up, 'N' goes while it is on the stream 'S'" + end + in_order}},
      {NOTHING_TO_LOAD, both + m, {"2.conf:5" + error + "'M' goes while it is on the stream 'S'" + end + in_order}},
      {NOTHING_TO_LOAD, s + "{ " + m + "}\n" + t + "{ " + m + "}\n", {"2.conf:3" + again("M", "T")}},
      {NOTHING_TO_LOAD,
       s + "{ " + m + "}\n" + s + "{ " + m + "}\n",
       {"2.conf:3" + duplicate, "2.conf:3" + again("M", "S")}},
      {NOTHING_TO_LOAD, both + "stream S { static M }\n", {"2.conf:5" + again("M", "S")}},
      {NOTHING_TO_LOAD,
       s + "{ " + m + "}\n" + s + "{ " + n + "static M }\n",
       {"2.conf:3" + duplicate, "2.conf:4" + again("M", "S")}},
      {"remove S\nremove M\nremove N\n",
       s + "{ " + m + "}\n" + s + "{ " + n + "resume M }\n",
       {"2.conf:3" + duplicate, "2.conf:3" + cut_off}},
      {"remove S\nremove M\nremove N\n",
       s + "{ " + m + "}\n" + s + "{ resume M " + n + "}\n",
       {"2.conf:3" + duplicate}}};

  for (const auto& [first, second, findings] : cases) {
    SCOPED_TRACE(first + second);
    const Temp_Dir dir;
    dir.write("x.d/1.conf", first);
    dir.write("x.d/2.conf", second);
    dir.write("x.d/3.conf", dynamic_directive("last", "recorder", "_make_Recorder", "last"));
    Texts expected;
    for (const std::string& finding : findings)
      expected.push_back("x.d/" + finding);
    EXPECT_EQ(expected, without_severity(check(dir, {"-f", "x.d"}).out));

    Starter_Process starter({"-f", dir / "x.d"});
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGHUP);
    EXPECT_TRUE(starter.wait_until([&starter] {
      return starter.count("last starts.") == 2 || starter.count("the back trace:") != 0;
    })) << starter.log();
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    const bool is_broken = !findings.empty() && findings.back().find("broken-stream") != std::string::npos;
    EXPECT_EQ(is_broken, starter.count("the back trace:") != 0) << starter.log();
  }
}

// The host takes the factory's service for a stream, does not initialise it, and faults when it closes the stream.
TEST(starter_check, reports_streams_without_modules)
{
  const std::string library = TESTS_BUILT_EXAMPLES_DIR "/libstream.so";
  const std::string warning = "1: empty-stream: 'S' is a stream without modules, which does nothing; if its factory "
                              "makes a service of another type, that is not initialised, and the host ends with a "
                              "record of a fault";
  const std::string stream = "dynamic S STREAM * " + library + ":_make_Pipeline() ";
  const std::string modules = "{ dynamic M Module * " + library + ":_make_Printer() }\n";
  for (const std::string& text : {stream, "stream " + stream, "stream " + stream + "{ }"})
    EXPECT_THAT(findings_in(text + '\n'), ElementsAre(warning)) << text;
  for (const std::string& text : {stream + "\nremove S\n", std::string("remove S\nremove M\n")})
    EXPECT_THAT(findings_in(text), ElementsAre()) << text;
  EXPECT_THAT(findings_in("dynamic S STREAM * " + library + ":_make_No()\n"), ElementsAre(StartsWith("1: missing-f")));

  const Temp_Dir dir;
  dir.write("1.d/1.conf", "remove S\nremove M\n");
  dir.write("1.d/2.conf", stream + "\nstream " + stream + modules);
  EXPECT_THAT(lines(check(dir, {"-f", "1.d"}).out), ElementsAre(HasSubstr("duplicate-service")));

  Start_Options options;
  options.env = {{"TESTS_INIT_WITNESS", dir / "witness"}};
  Starter_Process starter({"-f", dir.write("x.conf", "dynamic S STREAM * " + service_library("check_plain") +
                                                         ":_make_Plain() \"-p 1 $TESTS_INIT_WITNESS\"\n")},
                          options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_FALSE(std::filesystem::exists(dir / "witness"));
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("the back trace:")) << starter.log();
}

// Each text is a file of its own. The host is started with it, and must not push a module that the checker reports.
TEST(starter_check, reports_modules_that_the_host_does_not_push)
{
  const std::string library = TESTS_BUILT_EXAMPLES_DIR "/libstream.so";
  const std::string printer = "dynamic M Module * " + library + ":_make_Printer() ";
  const std::string pipeline = "stream dynamic S STREAM * " + library + ":_make_Pipeline() ";
  const std::string stream = pipeline + "{ " + printer + "}\n";
  const std::string other = pipeline + "{ dynamic N Module * " + library + ":_make_Printer() }\n";
  const std::string stays = "2: duplicate-service: service 'S' is not loaded: the one in x.conf:1 stays";
  const std::string fails = "2: ignored-module: 'M' is not pushed onto 'S', as the directive in x.conf:";
  const std::tuple<std::string, std::vector<std::string>> cases[] = {
      {stream, {}},
      {"remove X\n" + stream, {fails + "1 fails"}},
      {"suspend X\n" + stream, {"1: unknown-service: there is no service 'X' by then", fails + "1 fails"}},
      {"foo\n" + stream, {"1: syntax-error: a directive expected, not 'foo'"}},
      {pipeline + "{\n" + printer + "\nresume M }\n", {fails + "3 fails"}},
      {directive("A") + pipeline + "{ resume A " + printer + "}\n", {fails + "2 fails"}}, // S is not there before
      {pipeline + "{ dynamic N Module * " + library + ":_make_No()\n" + printer + "}\n",
       {"1: missing-factory: service 'N': factory '_make_No' of library '" + library + "': " + library +
            ": undefined symbol: _make_No",
        fails + "1 fails"}},
      {other + pipeline + "{ resume X " + printer + "}\n", {stays, fails + "2 fails"}},
      {other + pipeline + "{ resume N " + printer + "}\n", {stays}},
      {pipeline + "\nstream S { " + printer + "}\n",
       {"2: ignored-module: 'M' is not loaded: modules need 'stream dynamic'"}}};

  for (const auto& [text, findings] : cases) {
    SCOPED_TRACE(text);
    EXPECT_THAT(findings_in(text, {}, REMOVALS), testing::ElementsAreArray(findings));

    const bool is_pushed = findings.empty() || findings.back().find("ignored-module") == std::string::npos;
    Temp_Dir dir;
    Starter_Process starter({"-d", "-f", dir.write("x.conf", text)});
    EXPECT_TRUE(starter.wait_for_record("is started.")) << starter.log();
    EXPECT_EQ(is_pushed ? 1u : 0u, starter.count("Did dynamic on M (yyerrno=0)")) << starter.log();
  }
}

TEST(starter_check, reports_streams_that_are_there_already)
{
  const std::string library = TESTS_BUILT_EXAMPLES_DIR "/libstream.so";
  const std::string stream = "stream dynamic S STREAM * " + library + ":_make_Pipeline() { dynamic ";
  const std::string module = " Module * " + library + ":_make_Printer() }\n";
  EXPECT_THAT(findings_in(stream + "M" + module + stream + "N" + module, {}, REMOVALS),
              ElementsAre("2: duplicate-service: service 'S' is not loaded: the one in x.conf:1 stays"));
}

TEST(starter_check, reports_variables_of_parameters_that_are_not_set)
{
  EXPECT_THAT(findings_in(directive("A", "check_plain", "-p $NOT_SET_HERE 'a ${HOME}'")),
              ElementsAre("1: variable-not-set: service 'A', parameter '$NOT_SET_HERE': $NOT_SET_HERE is not set and "
                          "stays as it is",
                          "1: variable-not-set: service 'A', parameter 'a ${HOME}': the framework knows no ${...}: "
                          "write $NAME"));
}

TEST(starter_check, reports_parameters_that_are_left_out)
{
  EXPECT_THAT(findings_in(directive("A", "check_plain", "-m don't")),
              ElementsAre("1: altered-value: service 'A', parameters: the word with 't is left out: the quote is not "
                          "closed"));
}

// ---- Real configurations

TEST(starter_check, finds_nothing_wrong_with_the_examples)
{
  std::string libraries;
  std::error_code ignored; // libraries that are not built are findings
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TESTS_BUILT_EXAMPLES_DIR, ignored))
    if (entry.path().extension() == ".so")
      libraries += entry.path().parent_path().string() + ':';

  unsigned examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TESTS_EXAMPLES_DIR)) {
    const std::string conf = entry.path() / "conf.d";
    if (!std::filesystem::is_directory(conf))
      continue;
    ++examples;
    const Temp_Dir dir;
    const Outcome run = check(dir, {"--reactor", "tp", "--threads", "4", "-f", conf}, {{"LD_LIBRARY_PATH", libraries}});
    EXPECT_EQ("", run.out) << conf;
    EXPECT_EQ(0, run.status) << conf;
  }
  NEEDS(examples > 0, "examples");
}

TEST(starter_check, checks_services_that_others_have_written)
{
  const std::string library = "libnetsvcs-7.0.8.so:";
  const std::string good = "dynamic Client_Logging Service_Object * " + library +
                           "_make_ACE_Client_Logging_Acceptor() active \"-p 20009\"\n"
                           "dynamic Logger Service_Object * " +
                           library +
                           "_make_ACE_Server_Logging_Acceptor() active \"-p 20010\"\n"
                           "dynamic Name_Server Service_Object * " +
                           library +
                           "_make_ACE_Name_Acceptor() \"-p 20011\"\n"
                           "dynamic Time_Server Service_Object * " +
                           library + "_make_ACE_TS_Server_Acceptor() \"-p 20012\"\n";
  EXPECT_THAT(findings_in(good), ElementsAre());

  EXPECT_THAT(
      findings_in(good + "dynamic Tokens Service_Object * " + library +
                  "_make_ACE_No_Such_Acceptor() \"-p 20013\"\n"
                  "dynamic Logger Service_Object * netsvcs-7.0.8:_make_ACE_Server_Logging_Acceptor()\n"),
      ElementsAre(AllOf(StartsWith("5: missing-factory: "), HasSubstr("_make_ACE_No_Such_Acceptor")),
                  "6: library-not-loaded: service 'Logger': library 'netsvcs-7.0.8': " + absent({"netsvcs-7.0.8"}) +
                      "; '.8' is taken for the extension of a file: give its full name",
                  "6: duplicate-service: service 'Logger' takes the place of the one in x.conf:2"));
}

// ---- The manual page

using Severities = std::map<std::string, std::string>; // of the kinds, by their names

static Severities kinds_of_program()
{
  Severities kinds;
  for (int i = 0; const char* const name = describe_kind(static_cast<Finding_Kind>(i)).name; ++i)
    kinds[name] = describe_kind(static_cast<Finding_Kind>(i)).severity == Severity::ERROR ? "error" : "warning";
  return kinds;
}

// The kinds are the only words of the page that are set in this font. An entry may name several.
static Severities kinds_in_page(const std::string& page)
{
  static const std::regex entry("\\.It Sy (.*) Pq (.*)");
  static const std::regex word("[a-z-]+");
  Severities kinds;
  std::smatch match;
  for (const std::string& line : lines(page)) {
    if (!std::regex_match(line, match, entry))
      continue;
    const std::string names = match[1];
    for (std::sregex_iterator i(names.begin(), names.end(), word); i != std::sregex_iterator(); ++i)
      EXPECT_TRUE(kinds.emplace(i->str(), match[2]).second) << "twice: " << i->str();
  }
  return kinds;
}

TEST(starter_check, has_a_manual_page_that_names_each_kind_with_its_severity_and_no_other)
{
  EXPECT_EQ(kinds_of_program(), kinds_in_page(read_file(TESTS_MANUAL_PAGE)));

  NEEDS(has_tool("mandoc"), "mandoc");
  EXPECT_EQ(0, std::system(("mandoc -T lint -W warning " TESTS_MANUAL_PAGE)));
}
