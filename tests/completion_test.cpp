// The shells bash and zsh themselves complete command lines here.

#include "tests/support/command.h"
#include "tests/support/program_options.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;

static std::string shell_quoted(const std::string& text)
{
  return '\'' + text + '\''; // no text here has a quote
}

// The words that bash offers for the last one of `words`, sorted.
static std::vector<std::string> offered_by_bash(const std::vector<std::string>& words,
                                                const std::string& file = "starter.bash",
                                                const std::string& function = "_starter")
{
  std::string script = ". " TESTS_COMPLETION_DIR "/" + file + "; COMP_WORDS=(";
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
  return offered_by_bash(words, "starter-trace.bash", "_starter_trace");
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
