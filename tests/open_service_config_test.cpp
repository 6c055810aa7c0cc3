#include "starter/open_service_config.h"
#include "tests/support/failing_strdup.h"
#include "tests/support/log_capture.h"
#include "tests/support/logged.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"

#include <ace/Malloc_Allocator.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using Words = std::vector<std::string>;

static std::vector<char*> make_argv(Words& words)
{
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  return argv;
}

// The words that the configurator gets for the whole command line `words`.
static Words passed_by(Words words, bool skip_first_arg)
{
  const std::vector<char*> argv = make_argv(words);
  unsigned calls = 0;
  Words passed;
  const auto open_service = [&](int argc, char** vector) {
    ++calls;
    EXPECT_NE(nullptr, vector);
    for (int i = 0; i < argc; ++i) {
      EXPECT_NE(nullptr, vector[i]) << "argument " << i;
      passed.push_back(vector[i] ? vector[i] : "(null)");
    }
    EXPECT_EQ(nullptr, vector[argc]);
    return true;
  };

  EXPECT_TRUE(open_service_config(static_cast<int>(words.size()), const_cast<char**>(argv.data()), skip_first_arg,
                                  open_service));
  EXPECT_EQ(1u, calls);
  return passed;
}

// The words that the configurator gets behind the program name for the arguments `words`.
static Words passed_for(Words words)
{
  words.insert(words.begin(), "starter");
  Words passed = passed_by(words, true);

  EXPECT_FALSE(passed.empty());
  if (!passed.empty()) {
    EXPECT_EQ("starter", passed.front());
    passed.erase(passed.begin());
  }
  return passed;
}

static void make_dir(const std::string& path)
{
  ASSERT_EQ(0, mkdir(path.c_str(), 0777)) << path;
}

TEST(open_service_config, passes_on_the_options_of_the_configurator)
{
  const std::tuple<const char*, Words, Words> cases[] = {
      {"no option", {}, {}},
      {"flags", {"-b", "-d", "-n", "-y"}, {"-b", "-d", "-n", "-y"}},
      {"values", {"-k", "key", "-p", "pid", "-s", "12"}, {"-k", "key", "-p", "pid", "-s", "12"}},
      {"directive", {"-S", "remove"}, {"-S", "remove"}},
      {"file", {"-f", "no-such-file"}, {"-f", "no-such-file"}},
      {"in the order given", {"-y", "-s", "1", "-n", "-k", "key"}, {"-y", "-s", "1", "-n", "-k", "key"}},
      {"again and again", {"-d", "-d", "-k", "a", "-k", "b"}, {"-d", "-d", "-k", "a", "-k", "b"}}};

  for (const auto& [name, words, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, passed_for(words));
  }
}

TEST(open_service_config, separates_clustered_and_attached_forms)
{
  const std::tuple<const char*, Words, Words> cases[] = {{"-dn", {"-dn"}, {"-d", "-n"}},
                                                         {"-kvalue", {"-kvalue"}, {"-k", "value"}},
                                                         {"-dnfname", {"-dnfname"}, {"-d", "-n", "-f", "name"}},
                                                         {"-dk value", {"-dk", "value"}, {"-d", "-k", "value"}},
                                                         {"-k=value", {"-k=value"}, {"-k", "=value"}},
                                                         {"-f-", {"-f-"}, {"-f", "-"}},
                                                         {"-s12 -S -n", {"-s12", "-S", "-n"}, {"-s", "12", "-S", "-n"}},
                                                         {"-f followed by -d", {"-f", "-d"}, {"-f", "-d"}},
                                                         {"-f followed by --", {"-f", "--", "-d"}, {"-f", "--", "-d"}}};

  for (const auto& [name, words, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, passed_for(words));
  }
}

TEST(open_service_config, drops_what_is_not_for_the_configurator)
{
  const std::tuple<const char*, Words> cases[] = {
      {"thread-pool with its value", {"--thread-pool", "8"}},
      {"thread-pool with a joined value", {"--thread-pool=8"}},
      {"thread-pool takes the next argument, whatever it is", {"--thread-pool", "-n"}},
      {"thread-pool without a value", {"-d", "--thread-pool"}},
      {"unknown short option", {"-x"}},
      {"a colon", {"-:"}},
      {"a dash in a cluster", {"-x-"}},
      {"stray word", {"stray"}},
      {"lone dash", {"-"}},
      {"unknown long option and its value", {"--reactor", "select"}},
      {"joined value", {"--user=nobody"}},
      {"options of the program", {"--threads", "4", "--background", "--group", "a", "--primary-group=b"}},
      {"a letter as a long option", {"--d", "--f=x"}},
      {"missing values", {"-d", "-f"}},
      {"missing value at the end of a cluster", {"-dk"}},
      {"missing -p", {"-d", "-p"}},
      {"missing -s", {"-d", "-s"}},
      {"missing -S", {"-d", "-S"}}};

  for (const auto& [name, words] : cases) {
    SCOPED_TRACE(name);
    const bool with_d = words.front()[0] == '-' && words.front()[1] == 'd';
    EXPECT_EQ(with_d ? Words{"-d"} : Words{}, passed_for(words));
  }
}

TEST(open_service_config, goes_on_after_what_it_drops)
{
  EXPECT_EQ((Words{"-d", "-k", "key", "-n", "-y"}),
            passed_for({"stray", "-xd", "--reactor", "tp", "-k", "key", "-", "-n", "--thread-pool", "8", "-y"}));
}

TEST(open_service_config, ends_at_a_double_dash)
{
  EXPECT_EQ((Words{"-d"}), passed_for({"-d", "--", "-n"}));
  EXPECT_EQ((Words{}), passed_for({"--", "-f", "a", "--", "-d"}));
}

TEST(open_service_config, starts_with_dummy_and_parses_everything_without_a_program_name)
{
  EXPECT_EQ((Words{"dummy", "-d", "-n"}), passed_by({"-d", "-n"}, false));
  EXPECT_EQ((Words{"dummy", "-n"}), passed_by({"starter", "-n"}, false));
  EXPECT_EQ((Words{"dummy"}), passed_by({}, false));
}

TEST(open_service_config, skips_the_program_name_even_if_it_looks_like_an_option)
{
  EXPECT_EQ((Words{"-d", "-n"}), passed_by({"-d", "-n"}, true));
  EXPECT_EQ((Words{"my starter", "-n"}), passed_by({"my starter", "-n"}, true));
}

// The configurator skips the first word as the program name, so no other word may be the first.
TEST(open_service_config, starts_with_dummy_when_there_is_no_program_name)
{
  EXPECT_EQ((Words{"dummy"}), passed_by({}, true));
  EXPECT_EQ((Words{"dummy", "-d"}), passed_by({"", "-d"}, true));
}

TEST(open_service_config, returns_what_the_callback_returns)
{
  char name[] = "starter";
  char* argv[] = {name, nullptr};

  EXPECT_TRUE(open_service_config(1, argv, true, [](int, char**) { return true; }));
  EXPECT_FALSE(open_service_config(1, argv, true, [](int, char**) { return false; }));
}

TEST(open_service_config, lets_an_exception_pass)
{
  const Temp_Dir dir;
  dir.write("a.conf", "");
  Words words{"starter", "-f", dir.path()};
  std::vector<char*> argv = make_argv(words);
  const auto open_service = [](int, char**) -> bool { throw std::runtime_error("from the callback"); };

  EXPECT_THROW(open_service_config(3, argv.data(), true, open_service), std::runtime_error);
}

TEST(open_service_config, leaves_the_command_line_as_it_was)
{
  Words words{"starter", "stray", "-d", "word", "-k", "key", "--reactor", "tp"};
  std::vector<char*> argv = make_argv(words);
  const std::vector<char*> pointers = argv;
  const Words texts = words;

  open_service_config(static_cast<int>(words.size()), argv.data(), true, [](int, char**) { return true; });

  EXPECT_EQ(pointers, argv);
  EXPECT_EQ(texts, words);
}

// By default the parser of the framework would stop at the first word that is no option.
TEST(open_service_config, reads_on_after_stray_words_when_posix_order_is_asked_for)
{
  const Scoped_Env posix("POSIXLY_CORRECT", "1");

  EXPECT_EQ((Words{"-k", "key", "-d"}), passed_for({"--reactor", "tp", "-k", "key", "stray", "-d"}));
}

TEST(open_service_config, passes_the_conf_files_of_a_directory_in_byte_order)
{
  const Temp_Dir dir;
  for (const char* const name : {"z.conf", "a.conf", "a.conf.bak", "A.CONF", ".conf", "c.txt", "conf", "B.conf"})
    dir.write(name, "");
  make_dir(dir / "sub.conf");
  dir.write("sub.conf/inner.conf", "");

  EXPECT_EQ((Words{"-f", dir / ".conf", "-f", dir / "B.conf", "-f", dir / "a.conf", "-f", dir / "z.conf", "-d"}),
            passed_for({"--reactor", "tp", "--threads", "4", "-f", dir.path(), "-d"}));
}

TEST(open_service_config, follows_links_in_a_directory)
{
  const Temp_Dir dir;
  make_dir(dir / "x.d");
  make_dir(dir / "elsewhere");
  dir.write("file", "");
  ASSERT_EQ(0, symlink("../file", (dir / "x.d/to-file.conf").c_str()));
  ASSERT_EQ(0, symlink("../elsewhere", (dir / "x.d/to-directory.conf").c_str()));
  ASSERT_EQ(0, symlink("../nothing", (dir / "x.d/to-nothing.conf").c_str()));
  ASSERT_EQ(0, symlink("x.d", (dir / "link-to-x.d").c_str()));

  EXPECT_EQ((Words{"-f", dir / "x.d/to-file.conf"}), passed_for({"-f", dir / "x.d"}));
  EXPECT_EQ((Words{"-f", dir / "link-to-x.d/to-file.conf"}), passed_for({"-f", dir / "link-to-x.d"}));
}

TEST(open_service_config, skips_entries_that_are_no_regular_files)
{
  const Temp_Dir dir;
  ASSERT_EQ(0, mkfifo((dir / "pipe.conf").c_str(), 0666));
  dir.write("a.conf", "");

  EXPECT_EQ((Words{"-f", dir / "a.conf"}), passed_for({"-f", dir.path()}));
}

// Kept: the files of the first directory are passed again with those of the second. Callers expect it.
TEST(open_service_config, merges_the_files_of_several_directories)
{
  const Temp_Dir dir;
  const std::string a = dir / "a.d";
  const std::string b = dir / "b.d";
  const std::string a1 = dir.write("a.d/1.conf", "");
  const std::string a3 = dir.write("a.d/3.conf", "");
  const std::string b2 = dir.write("b.d/2.conf", "");

  EXPECT_EQ((Words{"-f", a1, "-f", a3, "-n", "-f", a1, "-f", a3, "-f", b2}), passed_for({"-f", a, "-n", "-f", b}));
  EXPECT_EQ((Words{"-f", b2, "-f", a1, "-f", a3, "-f", b2}), passed_for({"-f", b, "-f", a}));
  EXPECT_EQ((Words{"-f", b2, "-f", b2}), passed_for({"-f", b, "-f", b}));
  EXPECT_EQ((Words{"-f", a1, "-f", a3, "-f", "file", "-f", a1, "-f", a3, "-f", b2}),
            passed_for({"-f", a, "-f", "file", "-f", b}));
}

TEST(open_service_config, adds_nothing_for_a_directory_without_conf_files)
{
  const Temp_Dir dir;
  make_dir(dir / "empty.d");
  const std::string file = dir.write("full.d/a.conf", "");

  EXPECT_EQ((Words{}), passed_for({"-f", dir / "empty.d"}));
  EXPECT_EQ((Words{"-f", file, "-f", file, "-d"}), passed_for({"-f", dir / "full.d", "-f", dir / "empty.d", "-d"}));
}

TEST(open_service_config, passes_on_a_file_or_a_missing_path_unchanged)
{
  const Temp_Dir dir;
  const std::string file = dir.write("services", "");

  EXPECT_EQ((Words{"-f", file}), passed_for({"-f", file}));
  EXPECT_EQ((Words{"-f", dir / "missing.d/"}), passed_for({"-f", dir / "missing.d/"}));
}

TEST(open_service_config, keeps_a_doubled_slash)
{
  const Temp_Dir dir;
  dir.write("a.conf", "");

  EXPECT_EQ((Words{"-f", dir.path() + "//a.conf"}), passed_for({"-f", dir.path() + "/"}));
  EXPECT_EQ((Words{"-f", dir.path() + "///a.conf"}), passed_for({"-f", dir.path() + "//"}));
}

TEST(open_service_config, passes_long_paths_whole)
{
  const Temp_Dir dir;
  const std::string long_name(250, 'x');
  const std::string path = dir / long_name + '/' + long_name;
  const std::string file = dir.write(long_name + '/' + long_name + "/a.conf", "");

  EXPECT_EQ((Words{"-f", file}), passed_for({"-f", path}));
}

// As long as the object lives, the test does not have the rights of the superuser.
class Unprivileged
{
public:
  Unprivileged() : was_root_(geteuid() == 0)
  {
    if (was_root_) {
      EXPECT_EQ(0, seteuid(65534));
    }
  }
  ~Unprivileged()
  {
    if (was_root_) {
      EXPECT_EQ(0, seteuid(0));
    }
  }

private:
  const bool was_root_;
};

TEST(open_service_config, passes_on_a_directory_that_it_may_not_read)
{
  const Temp_Dir dir;
  dir.write("closed.d/a.conf", "");
  ASSERT_EQ(0, chmod((dir / "closed.d").c_str(), 0));

  Words passed;
  {
    const Unprivileged unprivileged;
    passed = passed_for({"-f", dir / "closed.d"});
  }
  ASSERT_EQ(0, chmod((dir / "closed.d").c_str(), 0777));

  EXPECT_EQ((Words{"-f", dir / "closed.d"}), passed);
}

TEST(open_service_config, skips_files_that_it_cannot_examine)
{
  const Temp_Dir dir;
  dir.write("listed.d/a.conf", "");
  ASSERT_EQ(0, chmod((dir / "listed.d").c_str(), 0744)); // other accounts can list the names, but not open the files

  Words passed;
  if (geteuid() == 0) {
    const Unprivileged unprivileged;
    passed = passed_for({"-f", dir / "listed.d"});
  } else {
    ASSERT_EQ(0, chmod((dir / "listed.d").c_str(), 0400));
    passed = passed_for({"-f", dir / "listed.d"});
  }
  ASSERT_EQ(0, chmod((dir / "listed.d").c_str(), 0777));

  EXPECT_EQ((Words{}), passed);
}

TEST(is_regular_entry, believes_the_type_and_looks_at_what_has_none)
{
  const Temp_Dir dir;
  dir.write("file", "");
  make_dir(dir / "directory");
  ASSERT_EQ(0, symlink("file", (dir / "link-to-file").c_str()));
  ASSERT_EQ(0, symlink("directory", (dir / "link-to-directory").c_str()));
  const std::tuple<const char*, unsigned char, const char*, bool> cases[] = {
      {"a file that is not looked at", DT_REG, "missing", true},
      {"a file of a file system without types", DT_UNKNOWN, "file", true},
      {"a directory of a file system without types", DT_UNKNOWN, "directory", false},
      {"what is gone from a file system without types", DT_UNKNOWN, "missing", false},
      {"a link to a file", DT_LNK, "link-to-file", true},
      {"a link to a directory", DT_LNK, "link-to-directory", false},
      {"a link to nothing", DT_LNK, "missing", false},
      {"a directory", DT_DIR, "file", false},
      {"a fifo", DT_FIFO, "file", false},
      {"a socket", DT_SOCK, "file", false},
      {"a device", DT_CHR, "file", false}};

  for (const auto& [what, type, name, result] : cases) {
    SCOPED_TRACE(what);
    ACE_DIRENT entry = {};
    entry.d_type = type;
    EXPECT_EQ(result, is_regular_entry(entry, dir / name));
  }
}

TEST(is_regular_entry, leaves_out_a_path_that_cannot_be_opened_for_its_length)
{
  ACE_DIRENT entry = {};
  entry.d_type = DT_REG;

  EXPECT_TRUE(is_regular_entry(entry, std::string(PATH_MAX - 1, 'x')));
  EXPECT_FALSE(is_regular_entry(entry, std::string(PATH_MAX, 'x')));
}

TEST(open_service_config, keeps_a_value_with_blanks_one_argument)
{
  const Temp_Dir dir;
  const std::string file = dir.write("my services.d/a file.conf", "");
  const std::string directive = "dynamic A Service_Object * a:make() \"-x 'y z'\"";

  EXPECT_EQ((Words{"-k", "a key", "-d"}), passed_for({"-k", "a key", "-d"}));
  EXPECT_EQ((Words{"-S", directive, "-d"}), passed_for({"-S", directive, "-d"}));
  EXPECT_EQ((Words{"-f", file, "-d"}), passed_for({"-f", dir / "my services.d", "-d"}));
  EXPECT_EQ((Words{"-f", "no such file"}), passed_for({"-f", "no such file"}));
}

TEST(open_service_config, substitutes_the_first_variable_of_a_text)
{
  const Scoped_Env home("STARTER_TEST_HOME", "/home/test");
  const Scoped_Env blank("STARTER_TEST_BLANK", "two words");
  const Scoped_Env empty("STARTER_TEST_EMPTY", "");
  const Scoped_Env unset("STARTER_TEST_UNSET", nullptr);
  const std::tuple<const char*, const char*> cases[] = {
      {"$STARTER_TEST_HOME", "/home/test"},
      {"$STARTER_TEST_HOME/conf", "/home/test/conf"},
      {"pre$STARTER_TEST_HOME", "pre/home/test"},
      {"$STARTER_TEST_HOME:$STARTER_TEST_HOME", "/home/test:$STARTER_TEST_HOME"},
      {"in $STARTER_TEST_HOME and", "in /home/test and"},
      {"$STARTER_TEST_BLANK", "two words"}, // one argument, because the line is split before it is expanded
      {"a$STARTER_TEST_EMPTY", "a"},
      {"$STARTER_TEST_UNSET", "$STARTER_TEST_UNSET"},
      {"$STARTER_TEST_UNSET$STARTER_TEST_HOME", "$STARTER_TEST_UNSET$STARTER_TEST_HOME"},
      {"${STARTER_TEST_HOME}", "${STARTER_TEST_HOME}"},
      {"$STARTER_TEST_HOMER", "$STARTER_TEST_HOMER"},
      {"$", "$"}};

  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ((Words{"-k", expected, "-d"}), passed_for({"-k", text, "-d"}));
  }
}

TEST(open_service_config, substitutes_in_the_program_name_and_in_file_names_too)
{
  const Scoped_Env variable("STARTER_TEST_NAME", "name");
  const Temp_Dir dir;
  dir.write("$STARTER_TEST_NAME.conf", "");

  EXPECT_EQ((Words{"name", "-d"}), passed_by({"$STARTER_TEST_NAME", "-d"}, true));
  EXPECT_EQ((Words{"-f", dir / "name.conf"}), passed_for({"-f", dir.path()}));
}

// The framework joins all arguments into one line and splits this line again by its own rules.
TEST(open_service_config, leaves_white_space_and_quotes_to_the_rules_of_the_framework)
{
  const std::tuple<const char*, Words, Words> cases[] = {
      {"a tab splits", {"-k", "a\tb", "-d"}, {"-k", "a", "b", "-d"}},
      {"a newline splits", {"-k", "a\nb", "-d"}, {"-k", "a", "b", "-d"}},
      {"a tab beside a blank stays", {"-k", "a\t b", "-d"}, {"-k", "a\t b", "-d"}},
      {"an empty value vanishes", {"-k", "", "-d"}, {"-k", "-d"}},
      {"quotes without a blank vanish", {"-k", "\"a\"b'c'", "-d"}, {"-k", "abc", "-d"}},
      {"a lone quote swallows what follows", {"-d", "-k", "it's", "-n"}, {"-d", "-k"}},
      {"a blank protects a lone quote", {"-k", "it's it", "-d"}, {"-k", "it's it", "-d"}},
      {"a hash mark is an ordinary character", {"-k", "#key", "-d"}, {"-k", "#key", "-d"}},
      {"a backslash is an ordinary character", {"-k", "a\\b", "-d"}, {"-k", "a\\b", "-d"}}};

  for (const auto& [name, words, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, passed_for(words));
  }
}

// Makes a directory of files with these names and returns the arguments that stand for it, in byte-wise order.
static Words make_files(const Temp_Dir& dir, const std::set<std::string>& names)
{
  Words expected;
  for (const std::string& name : names)
    expected.insert(expected.end(), {"-f", dir.write(name, "")});
  return expected;
}

TEST(open_service_config, passes_a_path_found_in_a_directory_as_one_argument_whatever_it_holds)
{
  for (const char* const name :
       {"it's.conf",  "a\"b.conf",     "x\"y.conf", "back\\.conf", "a\tb.conf",    "a\nb.conf",
        "a b.conf",   "it's a b.conf", "'.conf",    "\".conf",     "'\".conf",     "\"'.conf",
        "''.conf",    "\\\".conf",     "\\'.conf",  "\\ .conf",    " \\.conf",     "\" \\\".conf",
        "'a b'.conf", "#.conf",        " #.conf",   "$.conf",      "$ '.conf",     "\r\v\f.conf",
        "-b.conf",    "--.conf",       " .conf",    "  .conf",     "\xff\xfe.conf"}) {
    SCOPED_TRACE(name);
    const Temp_Dir dir;
    Words expected = make_files(dir, {"0.conf", name, "~.conf"});
    expected.insert(expected.end(), {"-k", "a key", "-d"});

    EXPECT_EQ(expected, passed_for({"-f", dir.path(), "-k", "a key", "-d"}));
  }
}

TEST(open_service_config, passes_a_path_with_every_character_as_one_argument)
{
  const Scoped_Env unset("_", nullptr); // the one variable of an environment whose name is that short
  for (int c = 1; c < 256; ++c) {
    SCOPED_TRACE(c);
    const std::string character(1, static_cast<char>(c));
    if (c == '/')
      continue;
    const Temp_Dir dir;
    Words expected = make_files(dir, {character + ".conf", "x" + character + "y.conf", "x" + character + ".conf"});
    expected.push_back("-d");

    EXPECT_EQ(expected, passed_for({"-f", dir.path(), "-d"}));
  }
}

TEST(open_service_config, passes_the_files_of_a_directory_with_quotes_in_its_name)
{
  const Temp_Dir dir;
  const std::string file = dir.write("it's-\"my\"\tdirectory\\/a.conf", "");

  EXPECT_EQ((Words{"-f", file, "-d"}), passed_for({"-f", dir / "it's-\"my\"\tdirectory\\", "-d"}));
}

// As long as it lives, the framework's containers get that many pieces of memory, and no more.
class Short_Memory : public ACE_New_Allocator
{
public:
  explicit Short_Memory(unsigned pieces) : pieces_(pieces), previous_(ACE_Allocator::instance(this)) {}
  ~Short_Memory() override { ACE_Allocator::instance(previous_); }

  Short_Memory(const Short_Memory&) = delete;
  Short_Memory& operator=(const Short_Memory&) = delete;

  unsigned pieces() const { return pieces_; }

  void* malloc(std::size_t size) override
  {
    if (pieces_ == 0)
      return nullptr;
    --pieces_;
    return ACE_New_Allocator::malloc(size);
  }

private:
  unsigned pieces_;
  ACE_Allocator* const previous_;
};

// Expects a lack of memory to be told to the callback, with whatever was short of it.
static void expect_no_vector()
{
  Words words{"starter", "-k", "a key", "-d"};
  std::vector<char*> argv = make_argv(words);
  int given_argc = -1;
  char** given_argv = argv.data();

  const Log_Capture capture; // of the framework's own records
  EXPECT_FALSE(open_service_config(4, argv.data(), true, [&](int argc, char** vector) {
    given_argc = argc;
    given_argv = vector;
    return false;
  }));
  EXPECT_EQ(0, given_argc);
  EXPECT_EQ(nullptr, given_argv);
}

// The vector would end early, and be taken for a whole one.
TEST(open_service_config, hands_over_nothing_when_there_is_no_memory_for_the_arguments)
{
  for (unsigned copied = 0; copied < 4; ++copied) {
    SCOPED_TRACE(copied);
    const Failing_Strdup failing(ENOMEM, copied);
    expect_no_vector();
  }
}

// The pieces for the arguments are the last ones: the framework's parser does not survive a lack of its own.
TEST(open_service_config, hands_over_nothing_when_there_is_no_memory_for_the_queue_of_arguments)
{
  constexpr unsigned plenty = 1000;
  unsigned needed = 0;
  {
    const Short_Memory memory(plenty);
    passed_for({"-k", "a key", "-d"});
    needed = plenty - memory.pieces();
  }
  ASSERT_LT(4u, needed);

  for (unsigned pieces = needed - 4; pieces < needed; ++pieces) {
    SCOPED_TRACE(pieces);
    const Short_Memory memory(pieces);
    expect_no_vector();
  }
}

// Nothing in these texts is for the framework to change, so that there is no line.
TEST(service_config_argv, is_null_when_there_is_no_memory_for_all_of_it)
{
  const Short_Memory memory(2); // one for the line, and one for the first texts
  Service_Config_Argv args;

  for (int n = 0; n < 100; ++n)
    args.append("text");

  EXPECT_EQ(nullptr, args.whole_argv());
}

// The framework takes its line for a comment.
TEST(service_config_argv, is_empty_when_the_first_text_begins_with_a_hash_mark)
{
  for (const char* const text : {"plain", "in quotes and with blanks"}) {
    SCOPED_TRACE(text);
    Service_Config_Argv args;
    args.append("#starter");
    args.append(text, true);

    char** const argv = args.whole_argv();

    ASSERT_NE(nullptr, argv);
    EXPECT_EQ(0, args.argc());
    EXPECT_EQ(nullptr, argv[0]);
  }
}

TEST(service_config_argv, holds_plain_texts_before_and_after_one_that_the_framework_changes)
{
  Service_Config_Argv args;
  Words expected;
  for (int n = 0; n < 100; ++n) {
    args.append(n == 50 ? "a'b c'd" : "text");
    expected.push_back(n == 50 ? "ab cd" : "text");
  }

  char** const argv = args.whole_argv();

  ASSERT_NE(nullptr, argv);
  EXPECT_EQ(expected, Words(argv, argv + args.argc()));
  EXPECT_EQ(nullptr, argv[args.argc()]);
}

// The framework copies the name of a variable of any length into a buffer of 4096 characters, including the final NUL.
TEST(open_service_config, drops_a_value_that_names_too_long_a_variable)
{
  const std::string longest(4095, 'A');
  const Scoped_Env variable(longest, "found");

  EXPECT_EQ((Words{"-k", "found", "-d"}), passed_for({"-k", '$' + longest, "-d"}));
  EXPECT_EQ((Words{"-k", "a found/b", "-d"}), passed_for({"-k", "a $" + longest + "/b", "-d"}));
  EXPECT_EQ((Words{"-k", '$' + std::string(4095, 'B'), "-d"}), passed_for({"-k", '$' + std::string(4095, 'B'), "-d"}));

  const std::tuple<const char*, std::string> cases[] = {
      {"one character more", '$' + longest + 'A'},
      {"much more", '$' + std::string(100000, 'A')},
      {"behind a variable", "$A\t$" + longest + 'A'},
      {"with text on both sides", "x $" + longest + "A y"},
      {"quotes, which are taken out first", '$' + std::string(2048, 'A') + "\"" + std::string(2048, 'A') + "\""},
      {"apostrophes", "$'" + std::string(2048, 'A') + "''" + std::string(2048, 'A') + "'"}};

  for (const auto& [name, value] : cases) {
    SCOPED_TRACE(name);
    for (const char* const letter : {"-k", "-p", "-s", "-S", "-f"})
      EXPECT_EQ((Words{"-d"}), passed_for({letter, value, "-d"})) << letter;
    EXPECT_EQ((Words{"dummy", "-d"}), passed_by({value, "-d"}, true));
  }
}

TEST(is_safe_to_substitute, ends_a_name_where_the_framework_ends_it)
{
  const Scoped_Env variable("STARTER_TEST_NAME", "found");
  const std::string ends = "$~!#%^&*()-+=|/?,.;:`[]{} \t\n\r";
  const std::string half(3000, 'A'); // two of them are too long for the framework

  for (int c = 1; c < 256; ++c) {
    SCOPED_TRACE(c);
    const std::string character(1, static_cast<char>(c));
    const bool is_end = ends.find(character) != std::string::npos;
    EXPECT_EQ(is_end, is_safe_to_substitute(('$' + half + character + half).c_str()));

    if (is_end && character.find_first_of("\t\n\r") == std::string::npos) { // at these the framework splits the value
      EXPECT_EQ((Words{"-k", "found" + character + "x"}), passed_for({"-k", "$STARTER_TEST_NAME" + character + "x"}));
    }
  }
}

TEST(do_open_service, reports_a_lack_of_memory_whatever_errno_is)
{
  const Log_Capture capture;

  errno = EINTR;
  EXPECT_FALSE(do_open_service(0, nullptr));
  ASSERT_EQ(1u, capture.records().size());
  EXPECT_EQ(
      error_failed("Failed to build the arguments of the service configurator, errno=12, Cannot allocate memory\n"),
      without_file(capture.records().front()));
}

TEST(open_service_config, passes_long_values_whole)
{
  const std::string value(1000000, 'v');

  EXPECT_EQ((Words{"-k", value, "-k", value}), passed_for({"-k", value, "-k" + value}));
}

// ---- Generated command lines

using Random = std::mt19937;

static unsigned pick(Random& random, unsigned count)
{
  return std::uniform_int_distribution<unsigned>(0, count - 1)(random);
}

static std::string make_word(Random& random, const std::string& alphabet, unsigned max_length)
{
  std::string word(pick(random, max_length + 1), '\0');
  for (char& c : word)
    c = alphabet[pick(random, static_cast<unsigned>(alphabet.size()))];
  return word;
}

static std::string all_characters()
{
  std::string characters;
  for (int c = 1; c < 256; ++c)
    characters += static_cast<char>(c);
  return characters;
}

static std::string make_hostile_word(Random& random)
{
  static const std::string alphabets[] = {all_characters(), "'\"\\ \t", "$AB'\"\\ {}#", "-bdfknypsS:=x", "\r\n\v\f #'"};
  static const char* const pieces[] = {"-f", "-k", "-S", "--thread-pool", "--", "-", "", "$HOME", "$", "#", "\"", "'"};

  switch (pick(random, 8)) {
  case 0:
  case 1:
    return pieces[pick(random, sizeof pieces / sizeof *pieces)];
  case 2:
    return '$' + std::string(4090 + pick(random, 12), 'A') + make_word(random, "'\"\\ A", 8);
  case 3:
    return make_word(random, alphabets[pick(random, 5)], pick(random, 50) == 0 ? 9000 : 300);
  default:
    return (pick(random, 2) ? "-k" : "") + make_word(random, alphabets[pick(random, 5)], 12);
  }
}

TEST(open_service_config, passes_generated_paths_as_one_argument_each)
{
  static const std::string alphabets[] = {all_characters(), "'\"\\ \t\n", "'\"\\", "\\\"", "'\" #$-=", "\r\n\v\f\t '"};
  const Scoped_Env unset("_", nullptr);
  Random random(1503);

  for (unsigned round = 0; round < 50; ++round) {
    SCOPED_TRACE(round);
    std::set<std::string> names;
    while (names.size() < 20) {
      std::string name = make_word(random, alphabets[pick(random, 6)], pick(random, 10) == 0 ? 200 : 12) + ".conf";
      std::replace(name.begin(), name.end(), '/', '"');
      names.insert(name);
    }
    const Temp_Dir dir;
    Words expected = make_files(dir, names);
    expected.push_back("-d");

    ASSERT_EQ(expected, passed_for({"-f", dir.path(), "-d"}));
  }
}

TEST(open_service_config, survives_every_command_line)
{
  Random random(20240917);

  for (unsigned round = 0; round < 6000; ++round) {
    SCOPED_TRACE(round);
    Words words(round % 500 == 0 ? 4000 : pick(random, 12));
    for (std::string& word : words)
      word = make_hostile_word(random);

    passed_by(words, pick(random, 4) != 0); // the callback checks the shape of the words
    if (HasFailure())
      break;
  }
}

// The same rules as a reader of the manual knows them. They leave out quotes, variables and white space.
static Words expected_for(const Words& words)
{
  static const std::string thread_pool("thread-pool");
  Words passed{words.empty() ? "dummy" : words.front()};

  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--")
      break;
    if (word.size() < 2 || word[0] != '-')
      continue;

    if (word[1] == '-') {
      const std::string name = word.substr(2, word.find('=') == std::string::npos ? word.npos : word.find('=') - 2);
      if (thread_pool.compare(0, name.size(), name) == 0 && word.find('=') == std::string::npos)
        ++i; // skip its value, also behind an abbreviated name
      continue;
    }

    for (std::size_t at = 1; at < word.size(); ++at) {
      const std::string letter{'-', word[at]};
      if (std::string("bdny").find(word[at]) != std::string::npos)
        passed.push_back(letter);
      else if (std::string("fkpsS").find(word[at]) != std::string::npos) {
        const bool attached = at + 1 < word.size();
        if (attached || i + 1 < words.size())
          passed.insert(passed.end(), {letter, attached ? word.substr(at + 1) : words[++i]});
        break;
      }
    }
  }
  return passed;
}

TEST(open_service_config, follows_the_rules_on_generated_command_lines)
{
  static const char* const pieces[] = {
      "-f", "-k", "-S", "--thread-pool", "--thread-pool=1", "--t", "--reactor", "--threads=2", "-", "-d", "-n"};
  Random random(4711);

  for (unsigned round = 0; round < 20000; ++round) {
    Words words(round % 1000 == 0 ? 3000 : pick(random, 10), "starter");
    for (std::size_t i = 1; i < words.size(); ++i)
      do
        words[i] = pick(random, 3) == 0 ? pieces[pick(random, sizeof pieces / sizeof *pieces)]
                                        : (pick(random, 2) ? "-" : "") + make_word(random, "bdfknypsS-=xt1:", 5);
      while (words[i].empty());

    EXPECT_EQ(expected_for(words), passed_by(words, true)) << ::testing::PrintToString(words);
    if (HasFailure())
      break;
  }
}
