#include "check/characters.h"
#include "check/library_probe.h"
#include "check/loaded_services.h"
#include "check/loader_model.h"
#include "check/near_names.h"
#include "check/probe_plan.h"
#include "check/report.h"
#include "check/substitution.h"
#include "check/svc_conf_parser.h"
#include "tests/support/child.h"
#include "tests/support/starter_process.h"
#include "tests/support/svc_conf_account.h"
#include "tests/support/temp_dir.h"
#include "tests/support/write_probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Texts = std::vector<std::string>;

// ---- The parser, held against the framework's own

// The framework runs in another process, because it leaks the directives that it has read before an error.
static void expect_same_accounts(const Texts& texts)
{
  const Temp_Dir dir;
  Child framework([&] {
    std::string accounts;
    for (const std::string& text : texts)
      accounts += framework_account(dir.write("svc.conf", text)) + '\f';
    return accounts;
  });
  const std::string accounts = framework.result();

  std::size_t at = 0;
  for (const std::string& text : texts) {
    const std::size_t end = accounts.find('\f', at);
    ASSERT_NE(std::string::npos, end) << text;
    ASSERT_EQ(accounts.substr(at, end - at), parser_account(text)) << text;
    at = end + 1;
  }
}

TEST(svc_conf_parser, reads_what_the_framework_reads)
{
  const std::string d = "dynamic A Service_Object * no:_make_A()";
  const Texts texts = {"",
                       "\n\n",
                       d,
                       d + '\n',
                       d + " active \"-p 1\"\n",
                       d + " inactive '-p 1'\n" + d,
                       d + " \"a\" \"b\" 'c'\n",
                       d + " \"a\tb\"\n" + d,
                       d + " \"a\xc3\xa9\"\n" + d,
                       d + " \"open\n" + d,
                       d + "# comment \"\n" + d + " # another",
                       "dynamic A Service_Object * a:_make_A()\n",
                       "dynamic A Service_Object * /x/y.so:object\n",
                       "dynamic A Service_Object * 'with blank':_make_A()\n",
                       "dynamic A Service_Object * :_make_A() \"x\"\n",
                       "dynamic A Module*no:_make_A() \"x\"\ndynamic B STREAM *no:_make_A()",
                       "dynamic A Service_Object no:_make_A()\n" + d,
                       "dynamic A\ndynamic\nstatic\nremove\n" + d,
                       "static A 'x'\nsuspend A\nresume A\nremove A\n",
                       "suspend A 'x' resume A",
                       "remove A\n\n\nremove\nremove B\nfoo\n",
                       "stream A\n",
                       "stream A { dynamic M Module * no:_make_M() \"x\" }\nremove B",
                       "stream dynamic S STREAM * no:_make_S() active { dynamic M Module * no:_make_M() }\nremove B",
                       "stream static S { dynamic M Module * no:_make_M()\nfoo remove B",
                       "stream dynamic S STREAM * no:_make_S() { foo }\nremove B",
                       "Dynamic A\n",
                       "word#comment\n" + d,
                       "word\"text\"\n" + d,
                       std::string("remove A\0remove B\n", 18),
                       "dynamic A Service_Object * no:" + std::string(4095, 'a') + "()\nremove B\n",
                       "remove A " + std::string(4096, 'a') + "\nremove B\n",
                       "remove A " + std::string(5000, ' ') + "\nremove B\n",
                       '#' + std::string(9000, 'x') + "\nremove B\n",
                       d + '"' + std::string(4094, 'a') + "\"\nremove B",
                       d + '"' + std::string(4095, 'a') + "\"\nremove B"};
  for (const std::string& text : texts)
    expect_same_accounts({text});
}

TEST(svc_conf_parser, reads_random_words_as_the_framework_does)
{
  static const char* const WORDS[] = {"dynamic",
                                      "static",
                                      "suspend",
                                      "resume",
                                      "remove",
                                      "stream",
                                      "Module",
                                      "STREAM",
                                      "*",
                                      ":",
                                      "(",
                                      ")",
                                      "active",
                                      "inactive",
                                      "A",
                                      "b",
                                      "no",
                                      "no:_make_A()",
                                      "/a/b.so",
                                      "1x",
                                      "\"",
                                      "'",
                                      "\"x y\"",
                                      "#",
                                      "\n",
                                      "\n",
                                      "\t",
                                      "}",
                                      "Service_Object",
                                      "dynamic A Service_Object * no:_make_A()",
                                      "dynamic B Service_Object *",
                                      "\xc3\xa9",
                                      "x-y",
                                      "%"};
  std::mt19937 random(1);
  Texts texts;
  for (int i = 0; i < 3000; ++i) {
    std::string text(i % 10 == 0 ? 4060 + random() % 40 : 0, i % 20 == 0 ? ' ' : '\n');
    for (unsigned long words = 1 + random() % 25; words > 0; --words) {
      text += WORDS[random() % (sizeof WORDS / sizeof WORDS[0])];
      if (random() % 4 != 0)
        text += ' ';
    }
    texts.push_back(text);
  }

  expect_same_accounts(texts);
}

TEST(svc_conf_parser, tells_the_lines_of_the_file)
{
  const Svc_Conf conf = parse_svc_conf("remove A\n# comment\n\nremove B\ndynamic\nC Service_Object\nx\nremove D\n");

  ASSERT_THAT(conf.directives, SizeIs(3));
  EXPECT_EQ(1, conf.directives[0].line);
  EXPECT_EQ(4, conf.directives[1].line);
  EXPECT_EQ(8, conf.directives[2].line);
  ASSERT_THAT(conf.errors, SizeIs(1));
  EXPECT_EQ(7, conf.errors[0].line);
  EXPECT_EQ("'*' after the type expected, not 'x'", conf.errors[0].message);
}

TEST(svc_conf_parser, keeps_what_is_executed_within_braces_before_an_error)
{
  const Svc_Conf conf = parse_svc_conf("stream dynamic S STREAM * lib:_make_S() active {\n"
                                       "dynamic M Module * lib:_make_M()\nremove N\nfoo }\nremove A\n"
                                       "stream T { dynamic M Module * lib:_make_M() foo }\n");

  ASSERT_THAT(conf.directives, SizeIs(3));
  EXPECT_EQ(Directive::STREAM, conf.directives[0].verb);
  EXPECT_EQ("S", conf.directives[0].name);
  EXPECT_TRUE(conf.directives[0].is_cut_off);
  EXPECT_EQ("N", conf.directives[1].name);
  EXPECT_TRUE(conf.directives[1].in_stream);
  EXPECT_EQ("A", conf.directives[2].name);
  EXPECT_THAT(conf.errors, SizeIs(2));
}

TEST(svc_conf_parser, keeps_the_parts_of_a_directive)
{
  const std::tuple<const char*, Directive::Factory, const char*, const char*> cases[] = {
      {"dynamic A Service_Object * lib:_make_A() \"-p 1\"", Directive::FUNCTION, "lib", "-p 1"},
      {"dynamic A Service_Object * ./lib.so:_make_A inactive 'a \"b\" c'", Directive::OBJECT, "./lib.so", "a \"b\" c"},
      {"dynamic A Service_Object * \"li b\":_make_A", Directive::OBJECT, "li b", ""},
      {"dynamic A Service_Object * :_make_A() \"a\" 'b' \"c\"", Directive::STATIC_FUNCTION, "", "a\" 'b' \"c"}};

  for (const auto& [text, factory, library, parameters] : cases) {
    SCOPED_TRACE(text);
    const Svc_Conf conf = parse_svc_conf(text);
    ASSERT_THAT(conf.directives, SizeIs(1));
    const Directive& directive = conf.directives[0];

    EXPECT_EQ("A", directive.name);
    EXPECT_EQ(factory, directive.factory);
    EXPECT_EQ(library, directive.library);
    EXPECT_EQ("_make_A", directive.symbol);
    EXPECT_EQ(parameters, directive.parameters);
    EXPECT_EQ(*parameters != '\0', directive.has_parameters);
  }
}

// ---- Characters

TEST(name_character, tells_its_name_and_its_bytes)
{
  const std::tuple<std::string, const char*> cases[] = {
      {"\t", "a tab (\\x09)"},
      {"\xef\xbb\xbfx", "a byte-order mark (\\xef\\xbb\\xbf)"},
      {"\xc2\xa0\xa0", "a no-break space (\\xc2\\xa0)"},
      {"\xe2\x80\x9cx", "a typographic quote (\\xe2\\x80\\x9c)"},
      {"\xe2\x80\x93", "a typographic dash (\\xe2\\x80\\x93)"},
      {"\xe2\x82\xac!", "a character that is not printable ASCII (\\xe2\\x82\\xac)"},
      {"\x01\x80", "a character that is not printable ASCII (\\x01)"},
      {"\xff", "a character that is not printable ASCII (\\xff)"},
      {std::string(1, '\0'), "a character that is not printable ASCII (\\x00)"}};

  for (const auto& [text, name] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(name, name_character("a" + text, 1));
    EXPECT_EQ(name, name_odd_character("a" + text));
  }
  EXPECT_EQ("", name_odd_character(" plain~"));
}

TEST(escape_bytes, leaves_printable_ascii_alone)
{
  EXPECT_EQ(" a\\~\\x09\\xc3\\xa9\\x7f", escape_bytes(" a\\~\t\xc3\xa9\x7f"));
}

// ---- Names of files

TEST(is_almost_conf, tells_slips_from_other_names)
{
  for (const char* const name : {"a.config", "a.cfg", "a.CONF", "a.Conf", "a.con", "a.cnf", "a.onf", "a.conff",
                                 "a.cofn", "a.ocnf", "a.conv", "a.confg", "a.conf ", "a.CONFIG", ".config", "a.b.cof"})
    EXPECT_TRUE(is_almost_conf(name)) << name;
  for (const char* const name :
       {"a.conf",     ".conf",      "a",           "",        "conf",   "config", "a.",    "a.conf~",
        "#a.conf#",   "a.conf.bak", "a.conf.orig", "a.conf1", "a.c",    "a.cpp",  "a.txt", "a.fnoc",
        "a.confused", "a.font",     "a.cn",        "a.conf/", "a.json", "a.env"})
    EXPECT_FALSE(is_almost_conf(name)) << name;
}

// ---- Values

TEST(check_variables, names_variables_that_are_not_replaced)
{
  ::setenv("TESTS_SET", "value", 1);
  const std::tuple<const char*, Texts> cases[] = {
      {"", {}},
      {"plain", {}},
      {"$TESTS_SET", {}},
      {"a$TESTS_SET/b", {}},
      {"100$", {}},
      {"$TESTS_NOT_SET", {"$TESTS_NOT_SET is not set and stays as it is"}},
      {"${TESTS_SET}", {"the framework knows no ${...}: write $NAME"}},
      {"$TESTS_SET:$TESTS_SET", {"$TESTS_SET stays as it is: only what follows the first dollar sign is replaced"}}};

  for (const auto& [text, problems] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(problems, check_variables(text));
  }
  EXPECT_THAT(check_variables('$' + std::string(20000, 'x')),
              ElementsAre("the name of a variable is too long for the framework"));
}

TEST(substitute_variable, replaces_what_the_framework_replaces)
{
  ::setenv("TESTS_SET", "value", 1);
  const std::string too_long = '$' + std::string(20000, 'x');
  EXPECT_EQ("avalue/b$TESTS_SET", substitute_variable("a$TESTS_SET/b$TESTS_SET"));
  EXPECT_EQ("$TESTS_NOT_SET", substitute_variable("$TESTS_NOT_SET"));
  EXPECT_EQ(too_long, substitute_variable(too_long));
}

// The words are compared with those that the framework makes.
TEST(check_left_out, tells_what_becomes_of_parameters)
{
  const std::tuple<const char*, const char*, std::size_t> cases[] = {
      {"", "", 0},
      {"-p 1", "", 2},
      {"a 'b c' \"d\"", "", 3},
      {"a'b c'd", "", 1},
      {"a #b", "", 2},
      {"#a b", "all of it is left out, as a comment", 0},
      {"a don't b c", "the word with 't b c is left out: the quote is not closed", 1},
      {"'a\\' b", "the word with 'a\\' b is left out: the quote is not closed", 0}};

  for (const auto& [text, problem, count] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(problem, check_left_out(text));
    EXPECT_THAT(split_parameters(text), SizeIs(count));
  }
}

TEST(split_parameters, makes_the_words_that_a_service_gets)
{
  EXPECT_THAT(split_parameters(""), IsEmpty());
  EXPECT_THAT(split_parameters("-p 1 'a b' $X"), ElementsAre("-p", "1", "a b", "$X"));
}

// ---- Libraries

TEST(library_probe, finds_the_symbols_of_a_library)
{
  const Library_Result result =
      probe_library({{}, service_library("check_plain"), {"_make_Plain", "_make_No"}, {}, {}});

  EXPECT_TRUE(result.is_probed);
  EXPECT_EQ("", result.error);
  ASSERT_THAT(result.errors, SizeIs(1));
  EXPECT_EQ(service_library("check_plain") + ": undefined symbol: _make_No", result.errors.at("_make_No"));
}

TEST(library_probe, says_why_a_library_cannot_be_loaded)
{
  const std::tuple<const char*, const char*> cases[] = {
      {"check_crash", "loading it ends the process with signal 6 (Aborted)"},
      {"check_exit", "loading it ends the process with status 0"},
      {"check_hang", "loading it does not end within 1 seconds"}};

  for (const auto& [name, error] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(error, probe_library({{}, service_library(name), {}, {}, {}}, 1).error);
  }
  EXPECT_EQ(service_library("check_undefined") + ": undefined symbol: variable_that_nobody_defines",
            probe_library({{}, service_library("check_undefined"), {}, {}, {}}).error);
  EXPECT_EQ("no_such_library: cannot open shared object file: No such file or directory; "
            "no_such_library.so: cannot open shared object file: No such file or directory; "
            "libno_such_library.so: cannot open shared object file: No such file or directory",
            probe_library({{}, "no_such_library", {}, {}, {}}).error);
}

// The probe is repeated, because answers arrive in pieces of varying length.
TEST(library_probe, reads_answers_that_look_like_the_end_of_all_answers)
{
  const Texts symbols{"E", "_make_THE_SAME"};
  for (int i = 0; i < 50; ++i) {
    const Library_Result result = probe_library({{}, service_library("check_plain"), symbols, {}, {"E"}});

    ASSERT_EQ("", result.error);
    ASSERT_THAT(result.errors, SizeIs(2));
    ASSERT_EQ(service_library("check_plain") + ": undefined symbol: E", result.errors.at("E"));
    ASSERT_THAT(result.missing_statics, ElementsAre("E"));
  }
}

TEST(library_probe, answers_in_full_when_its_writes_are_interrupted_and_short)
{
  const Slow_Writes slow;
  const Library_Result result =
      probe_library({{}, service_library("check_plain"), {"_make_Plain", "_make_No"}, {}, {"No_Such_Service"}});

  EXPECT_EQ("", result.error);
  EXPECT_THAT(result.functions, ElementsAre("_make_Plain"));
  ASSERT_THAT(result.errors, SizeIs(1));
  EXPECT_EQ(service_library("check_plain") + ": undefined symbol: _make_No", result.errors.at("_make_No"));
  EXPECT_THAT(result.missing_statics, ElementsAre("No_Such_Service"));
}

TEST(library_probe, ends_when_it_cannot_answer)
{
  const Failing_Writes failing(EIO);

  EXPECT_EQ("loading it ends the process with status 1",
            probe_library({{}, service_library("check_plain"), {}, {}, {}}).error);
}

TEST(library_probe, knows_static_services)
{
  const Library_Result result = probe_library({{}, std::nullopt, {}, {"No_Such_Factory"}, {"No_Such_Service"}});

  EXPECT_TRUE(result.is_probed);
  EXPECT_EQ("no such static factory", result.errors.at("No_Such_Factory"));
  EXPECT_THAT(result.missing_statics, ElementsAre("No_Such_Service"));
}

// ---- From directives to steps

static std::vector<Placed_Directive> directives_in(const std::string& text)
{
  std::vector<Placed_Directive> directives;
  for (const Directive& directive : parse_svc_conf(text).directives)
    directives.push_back({directive, {"x.conf", directive.line}, 0, {}});
  return directives;
}

TEST(probe_plan, tries_each_library_once_and_asks_for_static_services_in_between)
{
  const std::vector<Planned_Probe> plan = plan_probes(directives_in("static A\n"
                                                                    "dynamic B Service_Object * lib:_make_B()\n"
                                                                    "dynamic C Service_Object * other:_make_C()\n"
                                                                    "remove D\n"
                                                                    "dynamic E Service_Object * lib:_make_E()\n"
                                                                    "dynamic F Service_Object * :_make_F()\n"));

  ASSERT_THAT(plan, SizeIs(4));
  EXPECT_THAT(plan[0].request.statics, ElementsAre("A"));
  EXPECT_EQ("lib", plan[1].request.library);
  EXPECT_THAT(plan[1].request.symbols, ElementsAre("_make_B", "_make_E"));
  EXPECT_THAT(plan[1].directives, ElementsAre(1, 4));
  EXPECT_EQ("other", plan[2].request.library);
  EXPECT_EQ(std::nullopt, plan[3].request.library);
  EXPECT_THAT(plan[3].request.statics, ElementsAre("D"));
  EXPECT_THAT(plan[3].request.factories, ElementsAre("_make_F"));
}

TEST(loader_model, tells_what_becomes_of_the_names_of_services)
{
  const std::vector<Placed_Directive> directives = directives_in("dynamic A Service_Object * lib:_make_A()\n"
                                                                 "dynamic A Service_Object * lib:_make_A()\n"
                                                                 "remove A\n"
                                                                 "dynamic A Service_Object * lib:_make_A()\n");
  const std::vector<Loader_Step> steps = simulate_loader(directives);

  ASSERT_THAT(steps, SizeIs(4));
  EXPECT_EQ(Name_Effect::NONE, steps[0].name);
  EXPECT_EQ(Name_Effect::REPLACES, steps[1].name);
  EXPECT_EQ(1, steps[1].there.line);
  EXPECT_EQ(Name_Effect::NONE, steps[3].name);
}

TEST(loader_model, pushes_no_module_behind_a_failure_in_the_same_source)
{
  std::vector<Placed_Directive> directives =
      directives_in("dynamic A Service_Object * lib:_make_A()\n"
                    "stream dynamic S STREAM * lib:_make_S() { dynamic M Module * lib:_make_M() }\n");
  directives[0].found.library_error = "there is no library";
  const std::vector<Loader_Step> failing = simulate_loader(directives);
  ASSERT_THAT(failing, SizeIs(3));
  EXPECT_EQ(Stream_Effect::NOT_PUSHED, failing[2].in_stream);
  EXPECT_EQ(1, failing[2].failed.line);

  directives[0].source = 1;
  directives[1].source = directives[2].source = 2;
  const std::vector<Loader_Step> separate = simulate_loader(directives);
  ASSERT_THAT(separate, SizeIs(4));
  EXPECT_EQ(Stream_Effect::NONE, separate[2].in_stream);
  EXPECT_EQ(Stream_Break::NONE, separate[2].breaks);
  EXPECT_TRUE(separate[3].is_reload);
  EXPECT_EQ(Stream_Break::PUSHED_AGAIN, separate[3].breaks);
  EXPECT_EQ("S", separate[3].broken_stream);
}

// A hang-up repeats what the files say, and no directive of the command line.
TEST(loader_model, repeats_files_only)
{
  std::vector<Placed_Directive> directives =
      directives_in("stream dynamic S STREAM * lib:_make_S() { dynamic M Module * lib:_make_M() }\n");
  for (Placed_Directive& placed : directives)
    placed.place = {};

  EXPECT_THAT(simulate_loader(directives), SizeIs(2));
}

TEST(loaded_services, break_a_stream_once)
{
  Loaded_Services services;
  services.load("S", {{}, Directive::STREAM_OBJECT});
  services.load("M", {{}, Directive::MODULE});
  services.load("N", {{}, Directive::MODULE});

  EXPECT_EQ("", services.push("M", "S"));
  EXPECT_EQ("", services.push("N", "S"));
  EXPECT_EQ("", services.push("not there", "S"));
  EXPECT_EQ("S", services.remove("M"));
  EXPECT_EQ("", services.remove("N")) << "it is broken already";
}

TEST(loaded_services, take_modules_off_with_their_stream)
{
  Loaded_Services services;
  services.load("S", {{}, Directive::STREAM_OBJECT});
  services.load("M", {{}, Directive::MODULE});
  services.load("N", {{}, Directive::MODULE});
  services.push("M", "S");
  services.push("N", "S");

  services.take_off("N", "S");
  EXPECT_EQ("", services.remove("N"));
  EXPECT_EQ("", services.remove("S"));
  EXPECT_TRUE(services.find("M"));
  EXPECT_EQ("T", services.push("M", "T")) << "it has been on a stream";
}

// ---- Reports

TEST(check_report, writes_one_line_a_finding)
{
  EXPECT_EQ("", format_text({}));
  EXPECT_EQ("command line: bad-signal: b\nf: warning: read-twice: d\nf:7: syntax-error: "
            "\\x1b[31m\\x0a\\xff\\xc2\\x9b\xc3\xa9\n",
            format_text({{Finding_Kind::BAD_SIGNAL, {}, "b"},
                         {Finding_Kind::READ_TWICE, {"f", 0}, "d"},
                         {Finding_Kind::SYNTAX_ERROR, {"f", 7}, "\x1b[31m\n\xff\xc2\x9b\xc3\xa9"}}));
}

TEST(check_report, writes_json_whatever_the_texts_hold)
{
  EXPECT_EQ("{\"findings\": [], \"checked\": {\"files\": 2, \"directives\": 4, \"services\": 3}}\n",
            format_json({}, {{}, 2, 4, 3}));
  EXPECT_EQ(
      "{\"findings\": [\n"
      "  {\"kind\": \"bad-signal\", \"severity\": \"error\", \"file\": null, \"line\": null, \"message\": \"b\"},\n"
      "  {\"kind\": \"syntax-error\", \"severity\": \"error\", \"file\": \"f\\\\\", \"line\": 7, \"message\": "
      "\"\\\"\\u0009\\u0000\xc3\xa9\\ufffd\"}\n"
      "], \"checked\": {\"files\": 0, \"directives\": 0, \"services\": 0}}\n",
      format_json({{Finding_Kind::BAD_SIGNAL, {}, "b"},
                   {Finding_Kind::SYNTAX_ERROR, {"f\\", 7}, std::string("\"\t\0\xc3\xa9\xff", 6)}},
                  {}));
}

// The bytes of the text as the report writes them when they are no UTF-8, or control characters.
static std::string escaped(const std::string& bytes)
{
  static const char* const DIGITS = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const unsigned byte = static_cast<unsigned char>(c);
    text += {'\\', 'x', DIGITS[byte / 16], DIGITS[byte % 16]};
  }
  return text;
}

static void expect_reports(const std::string& message, const std::string& text, const std::string& json)
{
  SCOPED_TRACE(escaped(message));
  const Findings findings{{Finding_Kind::BAD_SIGNAL, {}, message}};

  EXPECT_EQ("command line: bad-signal: " + text + '\n', format_text(findings));
  EXPECT_EQ("{\"findings\": [\n  {\"kind\": \"bad-signal\", \"severity\": \"error\", \"file\": null, \"line\": null, "
            "\"message\": \"" +
                json + "\"}\n], \"checked\": {\"files\": 0, \"directives\": 0, \"services\": 0}}\n",
            format_json(findings, {}));
}

TEST(check_report, leaves_characters_as_they_are)
{
  for (const std::string c : {" ",
                              "~",
                              "\xc2\xa0",
                              "\xc2\xa9",
                              "\xc3\x80",
                              "\xdf\xbf",
                              "\xe0\xa0\x80",
                              "\xe0\xbf\xbf",
                              "\xe1\x80\x80",
                              "\xe2\x82\xac",
                              "\xec\xbf\xbf",
                              "\xed\x80\x80",
                              "\xed\x9f\xbf",
                              "\xee\x80\x80",
                              "\xef\xbf\xbf",
                              "\xf0\x90\x80\x80",
                              "\xf0\x9f\x98\x80",
                              "\xf0\xbf\xbf\xbf",
                              "\xf1\x80\x80\x80",
                              "\xf3\xbf\xbf\xbf",
                              "\xf4\x80\x80\x80",
                              "\xf4\x8f\xbf\xbf"}) {
    const std::string between = std::string("a").append(c).append(c).append("z");
    expect_reports(c, c, c);
    expect_reports(between, between, between);
  }
}

TEST(check_report, escapes_control_characters)
{
  const std::pair<std::string, std::string> cases[] = {{std::string(1, '\0'), "\\u0000"},
                                                       {"\x1f", "\\u001f"},
                                                       {"\x7f", "\\u007f"},
                                                       {"\xc2\x80", "\xc2\x80"}, // JSON takes these as they are
                                                       {"\xc2\x9f", "\xc2\x9f"}};

  for (const auto& [c, json] : cases) {
    expect_reports(c, escaped(c), json);
    expect_reports('a' + c + 'z', 'a' + escaped(c) + 'z', 'a' + json + 'z');
  }
}

TEST(check_report, escapes_each_byte_that_is_no_utf_8)
{
  const std::string malformed[] = {"\x80",
                                   "\xbf",
                                   "\xbf\x80", // continuations of nothing
                                   "\xc0\x80",
                                   "\xc1\xbf",
                                   "\xe0\x80\x80",
                                   "\xe0\x9f\xbf",
                                   "\xf0\x80\x80\x80",
                                   "\xf0\x8f\xbf\xbf", // too long
                                   "\xed\xa0\x80",
                                   "\xed\xbf\xbf", // surrogates
                                   "\xf4\x90\x80\x80",
                                   "\xf5\x80\x80\x80",
                                   "\xf7\xbf\xbf\xbf", // too large
                                   "\xf8\x88\x80\x80\x80",
                                   "\xfe",
                                   "\xff", // never used
                                   "\xc2",
                                   "\xdf",
                                   "\xe0",
                                   "\xe0\xa0",
                                   "\xef\xbf",
                                   "\xf0",
                                   "\xf0\x90",
                                   "\xf0\x90\x80",
                                   "\xf4\x8f\xbf"}; // cut off

  for (const std::string& bytes : malformed) {
    std::string json;
    for (std::size_t i = 0; i < bytes.size(); ++i)
      json += "\\ufffd";
    expect_reports(bytes, escaped(bytes), json);
    expect_reports(bytes + 'z', escaped(bytes) + 'z', json + 'z');
    expect_reports(bytes + "\xc3\xa9", escaped(bytes) + "\xc3\xa9", json + "\xc3\xa9");
  }
}
