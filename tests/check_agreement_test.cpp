// The checker is held against the configurator: on generated command lines and
// names of files, it has to report what the configurator does not get as it is
// meant, and nothing else. It is held against the host, too: on generated
// streams, it has to tell whether the host is lost with them.

#include "check/configurator_findings.h"
#include "check/loader_model.h"
#include "check/meant_options.h"
#include "check/svc_conf_parser.h"
#include "starter/open_service_config.h"
#include "tests/support/log_capture.h"
#include "tests/support/scoped_env.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <ace/ACE.h>
#include <ace/Get_Opt.h>
#include <ace/Service_Gestalt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace
{
using Texts = std::vector<std::string>;

/// The settings of a configurator.
struct Settings
{
  bool background = false;
  bool debug = false;
  bool no_statics = false;
  std::optional<std::string> pid_file;
  std::optional<std::string> key;
  Texts files;
  Texts directives;

  bool operator==(const Settings& other) const
  {
    return std::tie(background, debug, no_statics, pid_file, key, files, directives) ==
           std::tie(other.background, other.debug, other.no_statics, other.pid_file, other.key, other.files,
                    other.directives);
  }
};

std::string print(const Settings& s)
{
  return testing::PrintToString(std::make_tuple(s.background, s.debug, s.no_statics, s.pid_file.value_or("-"),
                                                s.key.value_or("-"), s.files, s.directives));
}

// The framework's own reading of its arguments. That of the options of the
// process ends in the settings of this process, so it is made here once more.
class Framework : public ACE_Service_Gestalt
{
public:
  Framework() : ACE_Service_Gestalt(1, true, true) {}

  Settings read(int argc, char** argv);

private:
  static Texts texts(ACE_SVC_QUEUE* queue);
};

Texts Framework::texts(ACE_SVC_QUEUE* queue)
{
  Texts result;
  ACE_TString* text = nullptr;
  if (queue)
    for (ACE_SVC_QUEUE_ITERATOR i(*queue); i.next(text) != 0; i.advance())
      result.emplace_back(text->c_str());
  return result;
}

Settings Framework::read(int argc, char** argv)
{
  Settings settings;
  ACE_Get_Opt opt(argc, argv, "bs:p:", 1, 0, ACE_Get_Opt::RETURN_IN_ORDER);
  for (int c; (c = opt()) != -1;)
    if (c == 'b')
      settings.background = true;
    else if (c == 'p')
      settings.pid_file = opt.opt_arg();

  const ACE_TCHAR* const no_key = logger_key_;
  const Log_Capture silence; // of the framework, which reports options of the
                             // other reading once it has met "-d"
  no_static_svcs_ = false;
  ACE::debug(false);
  (void)parse_args(argc, argv);
  settings.debug = ACE::debug();
  ACE::debug(false);
  settings.no_statics = no_static_svcs_;
  if (logger_key_ != no_key)
    settings.key = logger_key_;
  settings.files = texts(svc_conf_file_queue_);
  settings.directives = texts(svc_queue_);
  return settings;
}

/// A value of an option as it is given, and as it is meant.
struct Value
{
  char letter;
  std::string given;
  std::string meant;
  bool stays; ///< a variable in it is not replaced, which has a finding
};

/// A command line of the configurator's options.
struct Line
{
  Texts words{"starter"};
  Settings meant;
  std::vector<Value> values;
};

struct Outcome
{
  Settings settings; ///< of the configurator
  Findings findings; ///< of the checker
};

Outcome run(Texts words)
{
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  const int argc = static_cast<int>(words.size());

  Outcome outcome;
  const std::vector<Meant_Option> meant = meant_options(argc, argv.data());
  open_service_config(argc, argv.data(), true, [&](int args_count, char** args) {
    check_configurator_options(meant, args_count, args, outcome.findings);
    outcome.settings = Framework().read(args_count, args);
    return true;
  });
  return outcome;
}

bool is_reported(const Findings& findings, char letter, const std::string& value)
{
  const std::string option = std::string("-") + letter;
  const Texts names{option + " '" + value + '\'', '\'' + option + (value.empty() ? "" : ' ' + value) + '\''};
  return std::any_of(findings.begin(), findings.end(), [&names](const Finding& finding) {
    return finding.kind != Finding_Kind::READ_TWICE &&
           (finding.message.find(names[0]) != std::string::npos || finding.message.find(names[1]) != std::string::npos);
  });
}

bool is_taken_out(const Findings& findings, char letter)
{
  const std::string message = std::string("the configurator takes '-") + letter + "' out of a value";
  return std::any_of(findings.begin(), findings.end(),
                     [&message](const Finding& finding) { return finding.message == message; });
}

Texts taken_values(const Settings& taken, char letter)
{
  if (letter == 'f')
    return taken.files;
  if (letter == 'S')
    return taken.directives;
  const std::optional<std::string>& value = letter == 'k' ? taken.key : taken.pid_file;
  return value ? Texts{*value} : Texts{};
}

// Each option that is not in effect as it is meant has a finding that names it.
void expect_losses_reported(const Line& line, const Outcome& outcome)
{
  const Settings& taken = outcome.settings;
  EXPECT_TRUE(taken.background || !line.meant.background || is_reported(outcome.findings, 'b', ""));
  EXPECT_TRUE(taken.debug || !line.meant.debug || is_reported(outcome.findings, 'd', ""));
  EXPECT_TRUE(taken.no_statics || !line.meant.no_statics || is_reported(outcome.findings, 'n', "") ||
              is_taken_out(outcome.findings, 'y')); // which has the last word
  for (const char letter : std::string("fSkp")) {
    Texts left = taken_values(taken, letter);
    for (const Value& value : line.values) {
      if (value.letter != letter)
        continue;
      if (const auto found = std::find(left.begin(), left.end(), value.meant); found != left.end())
        left.erase(found);
      else
        EXPECT_TRUE(is_reported(outcome.findings, letter, value.given)) << letter << ' ' << value.given;
    }
    EXPECT_TRUE(left.empty() || !outcome.findings.empty()) << letter;
  }
}

std::string print(const Findings& findings)
{
  std::string text;
  for (const Finding& finding : findings)
    text += std::string(describe_kind(finding.kind).name) + ": " + finding.message + '\n';
  return text;
}

// A value that is taken out of another one may repeat what is meant.
bool is_harmless(const Line& line, const Finding& finding)
{
  return finding.kind == Finding_Kind::READ_TWICE &&
         std::any_of(line.values.begin(), line.values.end(),
                     [](const Value& value) { return value.given.find('-') != std::string::npos; });
}

void expect_agreement(const Line& line)
{
  const Outcome outcome = run(line.words);
  SCOPED_TRACE(testing::PrintToString(line.words) + "\nmeant: " + print(line.meant) +
               "\ntaken: " + print(outcome.settings) + "\nfindings:\n" + print(outcome.findings));

  bool is_clean = outcome.settings == line.meant;
  EXPECT_TRUE(is_clean || !outcome.findings.empty());
  expect_losses_reported(line, outcome);
  for (const Value& value : line.values) {
    EXPECT_TRUE(!value.stays || is_reported(outcome.findings, value.letter, value.given)) << value.given;
    is_clean = is_clean && !value.stays;
  }
  for (const Finding& finding : outcome.findings)
    EXPECT_TRUE(!is_clean || is_harmless(line, finding)) << print({finding});
}

// ---- Generated texts

using Random = std::mt19937;

std::size_t pick(Random& random, std::size_t count)
{
  return random() % count; // the same on every machine, unlike the
                           // distributions of the library
}

std::string make_text(Random& random)
{
  static const char* const PIECES[] = {"a", "b",  "x y", " ", "\t", "\"", "'",  "\\", "\\\"",   "#",
                                       "-", "-f", "-k",  "=", "\n", "$",  "${", "--", "$SET_X", "$UNSET_X"};
  static const char* const PLAIN[] = {"plain", "two words", "/a/b.conf", "a=b", "x#y", "back\\slash", "100$"};
  if (pick(random, 2) == 0)
    return PLAIN[pick(random, std::size(PLAIN))];

  std::string text;
  for (std::size_t i = pick(random, 5); i > 0; --i)
    text += PIECES[pick(random, std::size(PIECES))];
  return text;
}

// The name of a variable ends at the first character that the framework does
// not take for a part of it.
std::string meant_value(const std::string& value, bool& stays)
{
  const auto name_at = [&value](std::size_t dollar) {
    std::size_t end = dollar + 1;
    while (end < value.size() && (std::isalnum(static_cast<unsigned char>(value[end])) || value[end] == '_'))
      ++end;
    return value.substr(dollar + 1, end - dollar - 1);
  };
  std::string result = value;
  const std::size_t first = value.find('$');
  for (std::size_t at = first; at != std::string::npos; at = value.find('$', at + 1)) {
    const std::string name = name_at(at);
    if (at == first && name == "SET_X")
      result = value.substr(0, at) + "set" + value.substr(at + 1 + name.size());
    else if (!name.empty() || value.compare(at, 2, "${") == 0)
      stays = true;
  }
  return result;
}

void add_option_with_value(Line& line, Random& random, char letter)
{
  const std::string option = std::string("-") + letter;
  const std::string given = make_text(random);
  if (!given.empty() && pick(random, 3) == 0)
    line.words.push_back(option + given);
  else
    line.words.insert(line.words.end(), {option, given});

  Value value{letter, given, "", false};
  value.meant = meant_value(given, value.stays);
  value.stays = value.stays && letter != 'S'; // those of a directive are replaced, and looked at, later
  line.values.push_back(value);
  if (letter == 'k')
    line.meant.key = value.meant;
  else if (letter == 'p')
    line.meant.pid_file = value.meant;
  else
    (letter == 'S' ? line.meant.directives : line.meant.files).push_back(value.meant);
}

Line make_line(Random& random)
{
  std::string letters = "bdnkp";
  for (std::size_t i = 5; i > 1; --i)
    std::swap(letters[i - 1], letters[pick(random, i)]);
  letters.resize(pick(random, 4));
  for (std::size_t i = pick(random, 4); i > 0; --i)
    letters.insert(pick(random, letters.size() + 1), 1, "fS"[pick(random, 2)]);

  Line line;
  for (const char letter : letters) {
    if (std::strchr("bdn", letter))
      line.words.push_back(std::string("-") + letter);
    else
      add_option_with_value(line, random, letter);
    line.meant.background = line.meant.background || letter == 'b';
    line.meant.debug = line.meant.debug || letter == 'd';
    line.meant.no_statics = line.meant.no_statics || letter == 'n';
  }
  return line;
}
} // namespace

TEST(check_agreement, holds_for_generated_command_lines)
{
  const Scoped_Env set("SET_X", "set"), unset("UNSET_X", nullptr);
  Random random(16);
  unsigned as_meant = 0;
  for (unsigned round = 0; round < 1000; ++round) {
    const Line line = make_line(random);
    expect_agreement(line);
    as_meant += run(line.words).findings.empty() ? 1 : 0;
    if (HasFailure())
      break;
  }
  EXPECT_LT(200u, as_meant);
  EXPECT_GT(800u, as_meant);
}

// ---- Names of files in directories

static std::string make_name(Random& random)
{
  static const char* const PIECES[] = {"a", "'",  "\"",     "\\",       " ", "\t", "\n",
                                       "#", "-f", "$SET_X", "$UNSET_X", "~", "="};
  std::string name;
  for (std::size_t i = 1 + pick(random, 5); i > 0; --i)
    name += PIECES[pick(random, std::size(PIECES))];
  return name + ".conf";
}

TEST(check_agreement, holds_for_generated_names_in_directories)
{
  const Scoped_Env set("SET_X", "set"), unset("UNSET_X", nullptr);
  Random random(13);
  std::size_t names_count = 0;
  for (unsigned round = 0; round < 100; ++round) {
    const Temp_Dir dir;
    std::set<std::string> names;
    while (names.size() < 10)
      names.insert(make_name(random));
    Line line;
    line.words.insert(line.words.end(), {"-f", dir.path(), "-d", "-S", "remove a"});
    line.meant.debug = true;
    line.meant.directives = {"remove a"};
    line.values.push_back({'S', "remove a", "remove a", false});
    for (const std::string& name : names) {
      line.meant.files.push_back(dir.write(name, ""));
      line.values.push_back({'f', dir / name, dir / name, false});
    }
    names_count += names.size();

    bool ignored;
    const bool is_replaced = std::any_of(
        names.begin(), names.end(), [&ignored](const std::string& name) { return meant_value(name, ignored) != name; });
    EXPECT_EQ(is_replaced, !run(line.words).findings.empty());
    expect_agreement(line);
    if (HasFailure())
      break;
  }
  EXPECT_EQ(1000u, names_count);
}

// ---- The sample with the host

static std::string recorder(const std::string& name)
{
  return dynamic_directive(name, "recorder", "_make_Recorder", name);
}

// The services that the host starts are those of the files and directives that
// the configurator has been given here.
static void expect_host_agrees(Random& random)
{
  const Temp_Dir dir;
  std::set<std::string> names;
  while (names.size() < 3)
    names.insert(make_name(random));
  Texts services;
  for (const std::string& name : names) {
    services.push_back("s" + std::to_string(services.size()));
    dir.write("x.d/" + name, recorder(services.back()));
  }
  Texts words;
  for (const char* const letter : {"-k", "-p"}) {
    const std::string text = make_text(random);
    if (pick(random, 2) == 0 && text.find('b') == std::string::npos) // or the host may go to the background
      words.insert(words.end(), {letter, text});
  }
  words.insert(words.end(), {"-f", "x.d", "-S", recorder("inline"), "-p", "pid"});
  Texts line = words;
  line.insert(line.begin(), "starter");
  SCOPED_TRACE(testing::PrintToString(line));

  const std::filesystem::path here = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  const Settings model = run(line).settings;
  Texts expected;
  for (const std::string& file : model.files) {
    if (!std::filesystem::exists(file))
      break; // the configurator stops here, and at the directives too
    const std::string text = read_file(file);
    for (std::size_t i = 0; i < services.size(); ++i)
      if (text == recorder(services[i]))
        expected.push_back(services[i]);
  }
  const bool is_stopped = std::any_of(model.files.begin(), model.files.end(),
                                      [](const std::string& file) { return !std::filesystem::exists(file); });
  if (!is_stopped && std::count(model.directives.begin(), model.directives.end(), recorder("inline")) != 0)
    expected.push_back("inline");
  std::filesystem::current_path(here);

  Start_Options options = probed();
  options.env = {{"SET_X", "set"}};
  options.wrapper = {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", dir.path()};
  Starter_Process host(words, options);
  ASSERT_TRUE(host.wait_for_record("is started.")) << host.log();
  ASSERT_TRUE(host.wait_for_event_loop()) << host.log();
  const bool has_pid_file = std::filesystem::exists(dir / "pid");
  host.send(SIGTERM);
  EXPECT_EQ(0, host.wait_status()) << host.log();

  Texts started;
  for (const Record& record : host.records())
    if (const std::size_t at = record.text.find(" starts."); at != std::string::npos)
      started.push_back(record.text.substr(0, at));
  EXPECT_EQ(expected, started) << host.log();
  EXPECT_EQ(model.pid_file == "pid", has_pid_file);
}

TEST(check_agreement, rests_on_what_the_host_does)
{
  const Scoped_Env set("SET_X", "set"), unset("UNSET_X", nullptr);
  Random random(30);
  for (unsigned round = 0; round < 30 && !testing::Test::HasFailure(); ++round)
    expect_host_agrees(random);
}

// ---- Streams

// A file of directives about the stream S and the modules M and N.
static std::string make_streams(Random& random)
{
  static const std::string LIBRARY = TESTS_BUILT_EXAMPLES_DIR "/libstream.so";
  static const std::string MODULE = " Module * " + LIBRARY + ":_make_Printer() ";
  const auto pick_of = [&random](const Texts& texts) { return texts[pick(random, texts.size())]; };
  const Texts inner{"dynamic M" + MODULE, "dynamic M" + MODULE, "dynamic N" + MODULE, "dynamic N" + MODULE,
                    "static M ",          "resume N ",          "remove M ",          "suspend N "};
  const Texts outer{"remove S\n", "remove M\n", "remove N\n", "dynamic M" + MODULE + '\n'};

  std::string text;
  for (std::size_t i = 1 + pick(random, 3); i > 0; --i) {
    if (pick(random, 3) == 0) {
      text += pick_of(outer);
      continue;
    }
    text += pick(random, 4) == 0 ? "stream S {" : "stream dynamic S STREAM * " + LIBRARY + ":_make_Pipeline() { ";
    for (std::size_t modules = 1 + pick(random, 3); modules > 0; --modules)
      text += pick_of(inner);
    text += "}\n";
  }
  return text;
}

// Whether the host is lost at its start, after a hang-up or at its end, by what the checker takes from its files.
static bool is_fatal(const Texts& files)
{
  std::vector<Placed_Directive> directives;
  for (std::size_t i = 0; i < files.size(); ++i)
    for (const Directive& directive : parse_svc_conf(files[i]).directives) {
      directives.push_back({directive, {std::to_string(i), directive.line}, i, {}});
      directives.back().found.has_static = directive.verb == Directive::DYNAMIC;
    }
  const std::vector<Loader_Step> steps = simulate_loader(directives);
  return std::any_of(steps.begin(), steps.end(), ends_host);
}

// The host is started, gets a hang-up and is stopped. A stream that is broken may also keep the host from going on:
// where that is expected, nobody waits for long.
static bool is_lost(const Texts& files, bool is_expected)
{
  const Temp_Dir dir;
  for (std::size_t i = 0; i < files.size(); ++i)
    dir.write("x.d/" + std::to_string(i) + ".conf", files[i]);
  dir.write("x.d/last.conf", recorder("last"));
  Starter_Process host({"-f", dir / "x.d"});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  const auto is_over = [&] {
    return host.count("the back trace:") != 0 || (is_expected && std::chrono::steady_clock::now() > deadline);
  };
  const auto reaches = [&](unsigned count) {
    return host.wait_until([&] { return host.count("last starts.") == count || is_over(); }) && !is_over();
  };

  if (!reaches(1) || !host.wait_for_event_loop())
    return true;
  host.send(SIGHUP);
  if (!reaches(2))
    return true;
  host.send(SIGTERM);
  return !host.wait_until([&] { return !host.is_running() || is_over(); }) || host.is_running() ||
         host.wait_status() != 0 || host.count("the back trace:") != 0;
}

TEST(check_agreement, holds_for_generated_streams)
{
  Random random(1234);
  unsigned losses = 0;
  for (unsigned round = 0; round < 60 && !testing::Test::HasFailure(); ++round) {
    const Texts files{"remove S\nremove M\nremove N\n", make_streams(random)};
    const bool has_removals = pick(random, 4) != 0;
    const Texts given(files.begin() + (has_removals ? 0 : 1), files.end());
    SCOPED_TRACE(testing::PrintToString(given));

    const bool is_expected = is_fatal(given);
    EXPECT_EQ(is_expected, is_lost(given, is_expected));
    losses += is_expected ? 1 : 0;
  }
  EXPECT_LT(10u, losses);
  EXPECT_GT(50u, losses);
}
