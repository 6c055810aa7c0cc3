// The shells bash and zsh themselves complete command lines here.

#include "ctl/usage.h"
#include "tests/support/command.h"
#include "tests/support/program_options.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;

static std::string shell_quoted(const std::string& text)
{
  return '\'' + text + '\''; // no text here has a quote
}

// The words that bash offers for the last one of `words`, sorted. The completion is that of the command `name`, in the
// file and the function of its name, which has underscores instead of dashes.
static std::vector<std::string> offered_by_bash(const std::vector<std::string>& words,
                                                const std::string& name = "starter")
{
  std::string function = '_' + name;
  std::replace(function.begin(), function.end(), '-', '_');
  std::string script = ". " TESTS_COMPLETION_DIR "/" + name + ".bash; COMP_WORDS=(";
  for (const std::string& word : words)
    script += " \"" + word + '"';
  script += "); COMP_CWORD=" + std::to_string(words.size() - 1) + "; " + function +
            "; for reply in \"${COMPREPLY[@]}\"; do printf \"%s\\n\" \"$reply\"; done";

  std::vector<std::string> offered = lines_of(output_of("bash --norc -c " + shell_quoted(script)));
  std::sort(offered.begin(), offered.end());
  return offered;
}

// `line` as zsh completes it.
static std::string completed_by_zsh(const std::string& line)
{
  std::string result =
      output_of("timeout 60 zsh -f " TESTS_COMPLETION_SCRIPT " " TESTS_COMPLETION_DIR " " + shell_quoted(line));
  result.erase(result.find_last_not_of(" \n") + 1);
  return result;
}

// The options to offer, as they are typed.
static std::set<std::string> options_of_program()
{
  std::set<std::string> options;
  for (const std::string& option : program_options())
    options.insert(option.substr(0, option.find('=')));
  options.erase("--thread-pool"); // accepted and dropped, so it is not offered
  return options;
}

TEST(completion, offers_in_bash_the_options_of_the_program)
{
  const std::vector<std::string> offered = offered_by_bash({"starter", ""});

  EXPECT_EQ(15u, offered.size());
  EXPECT_EQ(options_of_program(), std::set<std::string>(offered.begin(), offered.end()));
}

TEST(completion, describes_in_zsh_the_options_of_the_program)
{
  const std::string text = read_file(TESTS_COMPLETION_DIR "/_starter");
  const std::string own = text.substr(0, text.find("if [["));
  static const std::regex option("\n  '\\*?(-[A-Za-z-]+)");
  std::set<std::string> options;
  for (std::sregex_iterator i(own.begin(), own.end(), option); i != std::sregex_iterator(); ++i)
    options.insert((*i)[1]);

  EXPECT_EQ(options_of_program(), options);
}

TEST(completion, finds_the_values_of_options_in_bash)
{
  EXPECT_THAT(offered_by_bash({"starter", "--reactor", ""}), ElementsAre("dev_poll", "priority", "select", "tp"));
  EXPECT_THAT(offered_by_bash({"starter", "--reactor", "=", "d"}), ElementsAre("dev_poll"));
  EXPECT_THAT(offered_by_bash({"starter", "--reactor", "="}), ElementsAre("dev_poll", "priority", "select", "tp"));
  EXPECT_THAT(offered_by_bash({"starter", "--user", "nobod"}), ElementsAre("nobody"));
  EXPECT_THAT(offered_by_bash({"starter", "--primary-group", "nogro"}), ElementsAre("nogroup"));
  EXPECT_THAT(offered_by_bash({"starter", "--group", "=", "nogro"}), ElementsAre("nogroup"));
  EXPECT_THAT(offered_by_bash({"starter", "--threads", ""}), ElementsAre());
  EXPECT_THAT(offered_by_bash({"starter", "--th"}), ElementsAre("--threads"));
}

TEST(completion, finds_configuration_files_and_directories)
{
  NEEDS(has_zsh_with_terminal(), "zsh with pseudo-terminals of its module zsh/zpty");
  const Temp_Dir dir;
  for (const char* const name : {"one two.conf", "one.txt", "one.d/x.conf"})
    dir.write(name, "");

  EXPECT_THAT(offered_by_bash({"starter", "-f", dir / "one"}), ElementsAre(dir / "one two.conf", dir / "one.d"));
  EXPECT_THAT(offered_by_bash({"starter", "-p", dir / "one.t"}), ElementsAre(dir / "one.txt"));
  EXPECT_EQ("starter -f " + dir / "one.d/x.conf", completed_by_zsh("starter -f " + dir / "one.d/"));
}

TEST(completion, offers_more_options_for_the_checker)
{
  NEEDS(has_zsh_with_terminal(), "zsh with pseudo-terminals of its module zsh/zpty");
  EXPECT_THAT(offered_by_bash({"starter", "--j"}), ElementsAre());
  EXPECT_THAT(offered_by_bash({"/usr/sbin/starter-check", "--j"}), ElementsAre("--json"));
  EXPECT_EQ("starter --js", completed_by_zsh("starter --js"));
  EXPECT_EQ("starter-check --json", completed_by_zsh("starter-check --js"));
}

TEST(completion, finishes_options_and_their_values_in_zsh)
{
  NEEDS(has_zsh_with_terminal(), "zsh with pseudo-terminals of its module zsh/zpty");
  const std::pair<const char*, const char*> cases[] = {{"starter --reac", "starter --reactor="},
                                                       {"starter --reactor=d", "starter --reactor=dev_poll"},
                                                       {"starter --reactor d", "starter --reactor dev_poll"},
                                                       {"starter -d --prim", "starter -d --primary-group="},
                                                       {"starter --user=nobod", "starter --user=nobody"}};
  for (const auto& [line, completed] : cases)
    EXPECT_EQ(completed, completed_by_zsh(line));
}

// ---- starter-trace

static std::vector<std::string> offered_for_traces(std::vector<std::string> words)
{
  words.insert(words.begin(), "starter-trace");
  return offered_by_bash(words, "starter-trace");
}

// The options in the usage of starter-trace, as they are typed.
static std::set<std::string> options_of_trace()
{
  const std::string usage = output_of(TESTS_TRACE " --help");
  static const std::regex option("(?:^|[ \\[])(--?[a-z][a-z-]*)");
  std::set<std::string> options;
  for (std::sregex_iterator i(usage.begin(), usage.end(), option); i != std::sregex_iterator(); ++i)
    options.insert((*i)[1]);
  return options;
}

TEST(completion, offers_the_options_of_starter_trace)
{
  const std::vector<std::string> offered = offered_for_traces({"-"});
  EXPECT_EQ(9u, offered.size());
  EXPECT_EQ(options_of_trace(), std::set<std::string>(offered.begin(), offered.end()));

  const std::string text = read_file(TESTS_COMPLETION_DIR "/_starter-trace");
  for (const std::string& name : offered)
    EXPECT_NE(std::string::npos, text.find(name)) << name;
}

TEST(completion, finds_logs_and_directories_for_starter_trace)
{
  const Temp_Dir dir;
  dir.write("one two.log", "");
  dir.write("one.d/x.log", "");

  EXPECT_THAT(offered_for_traces({dir / "one"}), ElementsAre(dir / "one two.log", dir / "one.d"));
  EXPECT_THAT(offered_for_traces({"--debug-dir", "=", dir / "one"}), ElementsAre(dir / "one.d"));
  EXPECT_THAT(offered_for_traces({"--since", "y"}), ElementsAre("yesterday"));
  NEEDS(has_zsh_with_terminal(), "zsh with pseudo-terminals of its module zsh/zpty");
  EXPECT_EQ("starter-trace --debug-dir=", completed_by_zsh("starter-trace --deb"));
  EXPECT_EQ("starter-trace --json " + dir / "one.d/x.log", completed_by_zsh("starter-trace --json " + dir / "one.d/"));
}

// ---- starterctl, which asks the components

// A stand-in for the command, in a directory to put before the PATH.
static const char COMPONENTS[] = R"(#!/bin/sh
case "$*" in
  list) printf 'demo\nother\n' ;;
  '--timeout 2 services') printf 'SERVICE  TYPE\nEcho  service\nTimer  service\n' ;;
  '-c demo --timeout 2 services') printf 'SERVICE  TYPE\nDemo_Echo  service\n' ;;
  '-s /x.socket --timeout 2 services') printf 'SERVICE  TYPE\nSocket_Echo  service\n' ;;
  *) echo "unexpected: $*" ;;
esac
)";

class starterctl_completion : public testing::Test
{
protected:
  starterctl_completion() : path_(std::string("PATH=") + dir_.path() + ':' + std::getenv("PATH"))
  {
    const std::string command = dir_.write("starterctl", COMPONENTS);
    EXPECT_EQ(0, chmod(command.c_str(), 0755));
    former_ = std::getenv("PATH");
    setenv("PATH", path_.c_str() + 5, 1);
  }

  ~starterctl_completion() override { setenv("PATH", former_.c_str(), 1); }

  static std::vector<std::string> offered(std::vector<std::string> words)
  {
    words.insert(words.begin(), "starterctl");
    return offered_by_bash(words, "starterctl");
  }

  const Temp_Dir dir_;
  const std::string path_;
  std::string former_;
};

TEST_F(starterctl_completion, offers_in_bash_the_options_and_commands_of_the_usage)
{
  static const std::regex name("\n  (-?-?[a-z][a-z-]*) ");
  std::set<std::string> in_usage;
  const std::string usage = USAGE;
  for (std::sregex_iterator i(usage.begin(), usage.end(), name); i != std::sregex_iterator(); ++i)
    in_usage.insert((*i)[1]);

  const std::vector<std::string> words = offered({""});
  EXPECT_EQ(21u, words.size());
  EXPECT_EQ(in_usage, std::set<std::string>(words.begin(), words.end()));
}

TEST_F(starterctl_completion, describes_in_zsh_the_options_and_commands_that_bash_offers)
{
  const std::string text = read_file(TESTS_COMPLETION_DIR "/_starterctl");
  static const std::regex name("\n  '(?:\\([^)]*\\))?([a-z-]+)(?:=?\\[|:(?![-a-z]+:->))");
  std::set<std::string> described;
  for (std::sregex_iterator i(text.begin(), text.end(), name); i != std::sregex_iterator(); ++i)
    described.insert((*i)[1]);

  const std::vector<std::string> words = offered({""});
  EXPECT_EQ(std::set<std::string>(words.begin(), words.end()), described);
}

TEST_F(starterctl_completion, asks_for_components_and_services_in_bash)
{
  EXPECT_THAT(offered({"-c", ""}), ElementsAre("demo", "other"));
  EXPECT_THAT(offered({"-c", "o"}), ElementsAre("other"));
  EXPECT_THAT(offered({"remove", ""}), ElementsAre("Echo", "Timer"));
  EXPECT_THAT(offered({"-c", "demo", "restart", ""}), ElementsAre("Demo_Echo"));
  EXPECT_THAT(offered({"-s", "/x.socket", "--timeout", "=", "9", "suspend", "S"}), ElementsAre("Socket_Echo"));
  EXPECT_THAT(offered({"--json", "resume", "T"}), ElementsAre("Timer"));
}

// The names come from a process, which may belong to anybody.
TEST_F(starterctl_completion, executes_nothing_that_stands_in_a_name)
{
  NEEDS(has_zsh_with_terminal(), "zsh with pseudo-terminals of its module zsh/zpty");
  const std::string witness = dir_ / "witness";
  dir_.write("starterctl",
             "#!/bin/sh\nprintf '%s\\n' 'SERVICE TYPE' '$(touch${IFS}" + witness + ") service' 'Echo x'\n");
  ASSERT_EQ(0, chmod((dir_ / "starterctl").c_str(), 0755));

  EXPECT_THAT(offered({"remove", ""}), ElementsAre("$(touch${IFS}" + witness + ")", "Echo"));
  EXPECT_THAT(offered({"-c", "E"}), ElementsAre("Echo"));
  EXPECT_EQ("starterctl remove Echo", completed_by_zsh("starterctl remove E"));
  EXPECT_NE(0, access(witness.c_str(), F_OK));
}

TEST_F(starterctl_completion, offers_in_bash_what_fits_the_place)
{
  EXPECT_THAT(offered({"st"}), ElementsAre("status"));
  EXPECT_THAT(offered({"-c", "demo", "re"}), ElementsAre("reload", "remove", "restart", "resume"));
  EXPECT_THAT(offered({"debug", ""}), ElementsAre("off", "on"));
  EXPECT_THAT(offered({"log-level", "e"}), ElementsAre("emergency", "error"));
  EXPECT_THAT(offered({"reload", "--f"}), ElementsAre("--force"));
  EXPECT_THAT(offered({"load", ""}), ElementsAre());
  EXPECT_THAT(offered({"--timeout", ""}), ElementsAre());
  EXPECT_THAT(offered({"--timeout", "="}), ElementsAre());
  EXPECT_THAT(offered({"debug", "on", "--j"}), ElementsAre("--json"));
}

TEST_F(starterctl_completion, finishes_commands_components_and_services_in_zsh)
{
  NEEDS(has_zsh_with_terminal(), "zsh with pseudo-terminals of its module zsh/zpty");
  const std::pair<const char*, const char*> cases[] = {
      {"starterctl stat", "starterctl status"},
      {"starterctl --js", "starterctl --json"},
      {"starterctl -c d", "starterctl -c demo"},
      {"starterctl remove T", "starterctl remove Timer"},
      {"starterctl -c demo restart D", "starterctl -c demo restart Demo_Echo"},
      {"starterctl -s /x.socket suspend S", "starterctl -s /x.socket suspend Socket_Echo"},
      {"starterctl log-level w", "starterctl log-level warning"},
      {"starterctl debug of", "starterctl debug off"}};
  for (const auto& [line, completed] : cases)
    EXPECT_EQ(completed, completed_by_zsh(line));
}
