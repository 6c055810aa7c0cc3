// Holds the manual page against the sources: what the one names, the other has to have, both ways round.

#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using Texts = std::set<std::string>;

static std::string read_source(const std::string& path)
{
  const std::string text = read_file(SOURCE_DIR "/" + path);
  EXPECT_NE("", text) << path;
  return text;
}

// The sources in a directory, one after another.
static std::string read_sources(const std::string& dir)
{
  std::string text;
  for (const auto& entry : std::filesystem::directory_iterator(SOURCE_DIR "/" + dir))
    if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h")
      text += read_file(entry.path());
  EXPECT_NE("", text) << dir;
  return text;
}

using Match = std::vector<std::string>; // the whole of it, then its groups

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

// ---- The page

static const std::string& page()
{
  static const std::string text = read_source("man/starter.8");
  return text;
}

// The lines of the page's section `name`.
static std::vector<std::string> section(const std::string& name)
{
  std::vector<std::string> lines;
  bool inside = false;
  std::istringstream in(page());
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, 4, ".Sh ") == 0)
      inside = line == ".Sh " + name;
    else if (inside)
      lines.push_back(line);
  }
  EXPECT_FALSE(lines.empty()) << name;
  return lines;
}

// Of the section's lines, those that begin with `start`, without it.
static std::vector<std::string> items(const std::string& name, const std::string& start)
{
  std::vector<std::string> found;
  for (const std::string& line : section(name))
    if (line.compare(0, start.size(), start) == 0)
      found.push_back(line.substr(start.size()));
  return found;
}

// ---- Records: "PRIORITY TEXT", the first line of the text, with a star for whatever differs from time to time

static Texts records_in_sources()
{
  static const std::map<std::string, std::string> priorities{{"LM_DEBUG", "debug"},     {"LM_INFO", "info"},
                                                             {"LM_WARNING", "warning"}, {"LM_ERROR", "error"},
                                                             {"LM_ALERT", "alert"},     {"LM_EMERGENCY", "emergency"}};

  const std::string sources = read_sources("starter") + read_sources("scrt");
  const auto calls =
      find_all(sources, R"re((LOG_RECORD|LOG_FAILED)\((LM_\w+),\s*((?:"(?:[^"\\]|\\.)*"|STARTER_\w+|\s)+))re");
  EXPECT_EQ(find_all(sources, R"((LOG_RECORD|LOG_FAILED)\(LM_)").size(), calls.size());

  Texts records;
  for (const Match& call : calls) {
    std::string text = replace_all(call[3], R"(STARTER_\w+)", "\"*\"");
    text = replace_all(text, R"re("\s*")re", "");
    text = text.substr(1, text.rfind('"') - 1);
    text = text.substr(0, text.find("\\n"));
    text = replace_all(replace_all(text, R"re(\\")re", "\""), "%.", "*");
    EXPECT_EQ(1U, priorities.count(call[2])) << call[2];
    records.insert(priorities.at(call[2]) + ' ' + text);
  }
  return records;
}

static Texts records_in_page()
{
  Texts records;
  for (const std::string& item : items("DIAGNOSTICS", ".It Sy ")) {
    std::smatch parts;
    EXPECT_TRUE(std::regex_match(item, parts, std::regex(R"re("(.*)" Pq (\w+))re"))) << item;
    const std::string text = replace_all(replace_all(parts[1].str(), R"(\\\(dq)", "\""), R"(\\&)", "");
    EXPECT_TRUE(records.insert(parts[2].str() + ' ' + replace_all(text, "<[a-z]+>", "*")).second) << "twice: " << item;
  }
  return records;
}

TEST(manual, names_every_record_of_the_sources_and_no_other)
{
  EXPECT_EQ(records_in_sources(), records_in_page());
}

// ---- Options: the name as it is written, and "=" after those that take an argument

static Texts options_in_sources()
{
  const std::string sources = read_sources("starter");

  Texts options;
  for (const Match& call : find_all(sources, R"re(\blong_option\("([\w-]+)", (ARG_REQUIRED|NO_ARG)\))re"))
    options.insert("--" + call[1] + (call[2] == "ARG_REQUIRED" ? "=" : ""));
  EXPECT_EQ(find_all(sources, R"(\blong_option\(")").size(), options.size());

  for (const Match& call : find_all(sources, R"re(_OPTIONS\[\] = "-([a-zA-Z:]*)")re"))
    for (const Match& letter : find_all(call[1], "([a-zA-Z])(:?)"))
      options.insert("-" + letter[1] + (letter[2].empty() ? "" : "="));
  return options;
}

static Texts options_in_page()
{
  Texts options;
  for (const std::string& item : items("OPTIONS", ".It Fl ")) {
    const std::string name = item.substr(0, item.find(' '));
    options.insert("-" + name + (item.find(" Ar ") != std::string::npos ? "=" : ""));
  }
  return options;
}

static Texts options_in_synopsis()
{
  Texts options;
  for (const std::string& item : items("SYNOPSIS", ".Op Fl ")) {
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
  EXPECT_EQ(options_in_sources(), options_in_page());
}

TEST(manual, shows_every_option_in_the_synopsis_but_the_one_that_is_dropped)
{
  Texts options = options_in_page();
  EXPECT_EQ(1U, options.erase("--thread-pool="));

  EXPECT_EQ(options, options_in_synopsis());
}

TEST(manual, names_the_reactor_types)
{
  Texts types_in_source;
  for (const Match& row : find_all(read_source("scrt/make_reactor.cpp"), R"re(\{"(\w+)", make_reactor<)re"))
    types_in_source.insert(row[1]);

  Texts types_in_page;
  bool inside = false;
  for (const std::string& line : section("OPTIONS")) {
    if (line.compare(0, 4, ".It ") == 0)
      inside = line.find("-reactor") != std::string::npos;
    else if (inside && line.compare(0, 4, ".Cm ") == 0)
      types_in_page.insert(line.substr(4, line.find(' ', 4) - 4));
  }

  EXPECT_EQ(4U, types_in_source.size());
  EXPECT_EQ(types_in_source, types_in_page);
}

// ---- Environment and signals

TEST(manual, names_the_variables_that_the_program_reads_and_no_other)
{
  Texts in_sources;
  for (const Match& call : find_all(read_sources("starter"), R"re(get_env_r\("(\w+)"\))re"))
    in_sources.insert(call[1]);

  Texts in_page;
  for (const std::string& item : items("ENVIRONMENT", ".It Ev "))
    in_page.insert(item);

  EXPECT_LT(0U, in_sources.size());
  EXPECT_EQ(in_sources, in_page);
}

static Texts signals_in(const std::string& text)
{
  Texts signals;
  for (const Match& name : find_all(text, R"(\bSIG[A-Z0-9]+\b)"))
    signals.insert(name[0]);
  return signals;
}

// The signals of each disposition that the program installs.
static std::set<Texts> dispositions_in_source()
{
  const std::string source = read_source("starter/fault.h") + read_source("starter/signals.cpp");
  const auto faults = find_all(source, R"(FAULT_SIGNALS\[\] = \{([^}]*)\})");
  EXPECT_EQ(1U, faults.size());
  const std::size_t begin = source.find("void init_signal_handlers()");
  std::string body = source.substr(begin, source.find("\n}\n", begin) - begin);
  body = std::regex_replace(body, std::regex("FAULT_SIGNALS"), faults.at(0)[1]);

  std::set<Texts> dispositions;
  std::size_t at = 0;
  for (std::size_t end; (end = body.find("const ACE_Sig_Action", at)) != std::string::npos; at = end + 1)
    dispositions.insert(signals_in(body.substr(at, end - at)));
  return dispositions;
}

TEST(manual, groups_the_signals_as_the_program_handles_them)
{
  std::set<Texts> in_page;
  for (const std::string& item : items("SIGNALS", ".It Dv "))
    in_page.insert(signals_in(item));

  EXPECT_EQ(5U, in_page.size());
  EXPECT_EQ(dispositions_in_source(), in_page);
}

// ---- The formatters

// What a shell command writes to either stream.
static std::string output_of(const std::string& command)
{
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  std::string output;
  char buf[4096];
  for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;)
    output.append(buf, n);
  pclose(pipe);
  return output;
}

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
  NEEDS(std::system("mandoc -T lint /dev/null >/dev/null 2>&1; test $? -lt 126") == 0, "mandoc");

  for (const std::string& path : pages()) {
    SCOPED_TRACE(path);
    std::istringstream remarks(output_of("mandoc -T lint " + path));
    for (std::string remark; std::getline(remarks, remark);)
      // Which pages are installed is the machine's affair; that ours refer to each other rightly is tested below.
      EXPECT_THAT(remark, testing::AnyOf(testing::HasSubstr("referenced manual not found"),
                                         testing::HasSubstr("outdated mandoc.db")));
  }
}

TEST(manual, passes_groff_without_a_warning)
{
  NEEDS(std::system("groff --version >/dev/null 2>&1") == 0, "groff");

  for (const std::string& path : pages())
    EXPECT_EQ("", output_of("groff -ww -mdoc -Tutf8 " + path + " 2>&1 >/dev/null")) << path;
}

TEST(manual, refers_to_pages_of_its_own_that_exist)
{
  for (const std::string& path : pages())
    for (const Match& reference : find_all(read_file(path), R"(\.Xr (starter\S*) (\d))"))
      EXPECT_TRUE(std::filesystem::exists(SOURCE_DIR "/man/" + reference[1] + '.' + reference[2]))
          << path << ": " << reference[0];
}
