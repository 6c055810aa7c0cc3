// The manual page must name everything that the program has, and nothing else.

#include "scrt/make_reactor.h"
#include "starter/starter.h"
#include "starter/version.h"

#include "tests/support/command.h"
#include "tests/support/manual_page.h"
#include "tests/support/program_options.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>

using Texts = std::set<std::string>;

using Match = std::vector<std::string>; // the whole match, then its groups

static std::vector<Match> find_all(const std::string& text, const std::string& pattern)
{
  const std::regex regex(pattern);
  std::vector<Match> found;
  for (std::sregex_iterator i(text.begin(), text.end(), regex); i != std::sregex_iterator(); ++i)
    found.emplace_back(i->begin(), i->end());
  return found;
}

static std::string replace_all(const std::string& text, const std::string& pattern, const std::string& by)
{
  return std::regex_replace(text, std::regex(pattern), by);
}

// The texts that stand as constants in the executable under test. They are those of the sources that it was built
// from, whatever these are called, and of the headers of the framework.
static std::vector<std::string> constant_texts()
{
  const Temp_Dir dir;
  const std::string section = dir / "section";
  (void)output_of("objcopy --dump-section .rodata=" + section + ' ' + starter_executable() + " /dev/null");

  std::vector<std::string> texts;
  std::istringstream in(read_file(section));
  for (std::string text; std::getline(in, text, '\0');)
    texts.push_back(text);
  return texts;
}

// ---- Records: the first line of the text, with a star for each part that varies

// Whether `text` is the format of a record: several words that end a line or have a part that varies. The framework's
// own texts begin with a class or a parenthesis, and the notice for the journal with a priority in angle brackets.
static bool is_record_format(const std::string& text)
{
  static const std::regex words(R"([A-Za-z%][^ :_(<]* [^]*)");
  return std::regex_match(text, words) && (text.back() == '\n' || text.find('%') != std::string::npos);
}

static std::string first_line(const std::string& text)
{
  return text.substr(0, text.find('\n'));
}

static Texts records_in_program()
{
  Texts records;
  for (const std::string& text : constant_texts())
    if (is_record_format(text)) {
      const std::string line = replace_all(first_line(text), "%.", "*");
      records.insert(replace_all(line, "\\b(" STARTER_VERSION "|" STARTER_REVISION ")(?= |\\))", "*"));
    }
  return records;
}

static Texts records_in_page()
{
  Texts records;
  for (const Manual_Record& record : manual_records())
    EXPECT_TRUE(records.insert(record.text).second) << "twice: " << record.text;
  return records;
}

// The other tests compare the priority of each record that they see with the one in the page: see expect_in_manual.
TEST(manual, names_every_record_of_the_program_and_no_other)
{
  NEEDS(has_tool("objcopy"), "objcopy of the binutils");
  EXPECT_THAT(records_in_page(), testing::ContainerEq(records_in_program()));
}

// ---- Options: the name as it is typed, with "=" behind those that take an argument

static Texts options_in_page()
{
  Texts options;
  for (const std::string& item : manual_items("OPTIONS", ".It Fl ")) {
    const std::string name = item.substr(0, item.find(' '));
    options.insert("-" + name + (item.find(" Ar ") != std::string::npos ? "=" : ""));
  }
  return options;
}

static Texts options_in_synopsis()
{
  Texts options;
  for (const std::string& item : manual_items("SYNOPSIS", ".Op Fl ")) {
    const std::string name = item.substr(0, item.find(' '));
    const std::string value = item.find(" Ar ") != std::string::npos ? "=" : "";
    if (name[0] == '-')
      options.insert("-" + name + value);
    else
      for (const char letter : name)
        options.insert(std::string("-") + letter + value);
  }
  return options;
}

TEST(manual, names_every_option_of_both_parsers_and_no_other)
{
  EXPECT_EQ(program_options(), options_in_page());
}

TEST(manual, shows_every_option_in_the_synopsis_but_the_one_that_is_dropped)
{
  Texts options = options_in_page();
  EXPECT_EQ(1U, options.erase("--thread-pool="));

  EXPECT_EQ(options, options_in_synopsis());
}

// The factories are instances of one template, whose names the executable keeps for the debugger.
static Texts reactor_factories()
{
  Texts classes;
  for (const Match& symbol : find_all(output_of("nm --demangle " + starter_executable()), R"(\bmake_reactor<(.+)>\()"))
    classes.insert(symbol[1]);
  return classes;
}

TEST(manual, names_the_reactor_types)
{
  NEEDS(has_tool("nm"), "nm of the binutils");
  Texts types;
  bool inside = false;
  for (const std::string& line : manual_section("OPTIONS")) {
    if (line.compare(0, 4, ".It ") == 0)
      inside = line.find("-reactor") != std::string::npos;
    else if (inside && line.compare(0, 4, ".Cm ") == 0)
      types.insert(line.substr(4, line.find(' ', 4) - 4));
  }

  std::set<make_reactor_t> factories;
  for (const std::string& type : types)
    factories.insert(get_reactor_factory(type.c_str(), 2));
  EXPECT_EQ(4U, types.size());
  EXPECT_EQ(0U, factories.count(nullptr));
  EXPECT_EQ(reactor_factories().size(), factories.size());
}

// ---- Environment and signals

TEST(manual, names_the_variables_that_the_program_reads_and_no_other)
{
  NEEDS(has_tool("objcopy"), "objcopy of the binutils");
  Texts in_program;
  for (const std::string& text : constant_texts())
    if (std::regex_match(text, std::regex("[A-Z]{2,}[A-Z_]*[A-Z]")))
      in_program.insert(text);

  const std::vector<std::string> in_page = manual_items("ENVIRONMENT", ".It Ev ");
  EXPECT_LT(0U, in_program.size());
  EXPECT_EQ(in_program, Texts(in_page.begin(), in_page.end()));
}

// The signals that the program handles or ignores, in groups with the same disposition.
static std::set<Texts> groups_of_dispositions()
{
  init_signal_handlers();

  std::map<void (*)(int), Texts> groups;
  for (int signo = 1; signo < SIGRTMIN; ++signo) {
    struct sigaction action;
    if (sigaction(signo, nullptr, &action) == 0 && action.sa_handler != SIG_DFL)
      groups[action.sa_handler].insert(signo == SIGIO ? "SIGIO" : std::string("SIG") + sigabbrev_np(signo));
  }

  std::set<Texts> found;
  for (const auto& [handler, signals] : groups)
    found.insert(signals);
  return found;
}

TEST(manual, groups_the_signals_as_the_program_handles_them)
{
  std::set<Texts> in_page;
  for (const std::string& item : manual_items("SIGNALS", ".It Dv ")) {
    Texts signals;
    for (const Match& name : find_all(item, R"(\bSIG[A-Z0-9]+\b)"))
      signals.insert(name[0]);
    in_page.insert(signals);
  }

  EXPECT_EQ(5U, in_page.size());
  EXPECT_EQ(groups_of_dispositions(), in_page);
}

// ---- The formatters

static std::vector<std::string> pages()
{
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(SOURCE_DIR "/man"))
    if (std::regex_search(entry.path().filename().string(), std::regex(R"(\.[1-9]$)")))
      paths.push_back(entry.path());
  EXPECT_LE(2U, paths.size());
  return paths;
}

TEST(manual, passes_mandoc_without_a_remark)
{
  NEEDS(has_tool("mandoc"), "mandoc");

  for (const std::string& path : pages()) {
    SCOPED_TRACE(path);
    for (const std::string& remark : lines_of(run("mandoc -T lint " + path).output))
      // Other pages may be missing on this machine; a test below follows the references between our own.
      EXPECT_THAT(remark, testing::AnyOf(testing::HasSubstr("referenced manual not found"),
                                         testing::HasSubstr("outdated mandoc.db")));
  }
}

TEST(manual, passes_groff_without_a_warning)
{
  NEEDS(has_tool("groff"), "groff");

  for (const std::string& path : pages())
    EXPECT_EQ("", run("groff -ww -mdoc -Tutf8 " + path + " 2>&1 >/dev/null").output) << path;
}

TEST(manual, refers_to_pages_of_its_own_that_exist)
{
  for (const std::string& path : pages())
    for (const Match& reference : find_all(read_file(path), R"(\.Xr (starter\S*) (\d))"))
      EXPECT_TRUE(std::filesystem::exists(SOURCE_DIR "/man/" + reference[1] + '.' + reference[2]))
          << path << ": " << reference[0];
}
