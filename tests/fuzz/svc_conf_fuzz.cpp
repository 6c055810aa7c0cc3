// This target runs the checker's parser. The input is a configuration file. The framework's own parser has to read the
// same in it. Besides, the directives are written down in a plain way, one word a line, and have to come out of that
// again.

#include "check/svc_conf_parser.h"
#include "tests/fuzz/oracle.h"
#include "tests/support/svc_conf_account.h"
#include "tests/support/temp_dir.h"

#include <sanitizer/lsan_interface.h>

#include <algorithm>

namespace
{
const char* const VERBS[] = {"dynamic", "static", "suspend", "resume", "remove", "stream"};
const char* const TYPES[] = {"Service_Object", "Module", "STREAM"};

// The text tells all of the directive but its line.
std::string describe(const Directive& directive)
{
  return std::string(VERBS[directive.verb]) + (directive.in_stream ? " in a stream '" : " '") + directive.name + "' " +
         TYPES[directive.type] + ' ' + std::to_string(directive.factory) + " '" + directive.library + "' '" +
         directive.symbol + "' " + (directive.has_parameters ? "with '" : "without '") + directive.parameters + '\'';
}

Texts describe(const std::vector<Directive>& directives)
{
  Texts texts;
  for (const Directive& directive : directives)
    texts.push_back(describe(directive));
  return texts;
}

bool is_printable(const std::string& text)
{
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// The text is written in quotes. A character that would end such a text can only come from a word in front of the first
// quote: that word goes into the text, but for its first character. A word without quotes can be written down so too,
// except for the path of a drive, whose colon has to be the second character.
std::string write_down_text(const std::string& text)
{
  if (is_printable(text))
    return '"' + text + "\"\n";
  if (text.compare(1, 1, ":") == 0)
    return text + '\n';

  const std::size_t quote = text.find_first_of("'\"");
  return 'x' + text + (quote == std::string::npos ? '"' : text[quote]) + '\n';
}

std::string write_down(const Directive& directive)
{
  std::string text = std::string(VERBS[directive.verb]) + '\n' + directive.name + '\n';
  if (directive.verb == Directive::DYNAMIC) {
    text += std::string(TYPES[directive.type]) + "\n*\n";
    if (directive.factory != Directive::STATIC_FUNCTION)
      text += write_down_text(directive.library);
    text += ":\n" + directive.symbol + '\n' + (directive.factory == Directive::OBJECT ? "" : "(\n)\n");
  }
  return text + (directive.has_parameters ? write_down_text(directive.parameters) : "");
}

std::string write_down(const std::vector<Directive>& directives)
{
  std::string text;
  for (std::size_t i = 0; i < directives.size(); ++i) {
    const bool is_first = !directives[i].in_stream && i + 1 < directives.size() && directives[i + 1].in_stream;
    const bool is_last = directives[i].in_stream && (i + 1 == directives.size() || !directives[i + 1].in_stream);
    if (is_first && directives[i].verb != Directive::STREAM)
      text += "stream\n";
    text += write_down(directives[i]) + (is_first ? "{\n" : "") + (is_last ? "}\n" : "");
  }
  return text;
}

void check_lines(const Svc_Conf& conf, const std::string& text)
{
  const int lines = static_cast<int>(std::count(text.begin(), text.end(), '\n')) + 1;
  int last = 1;
  for (const Directive& directive : conf.directives) {
    expect(directive.line >= last && directive.line <= lines, "lines of directives go up, in the file");
    last = directive.line;
  }

  for (const Syntax_Error& error : conf.errors) {
    expect(!error.message.empty(), "an error has a message");
    expect(error.line >= 1 && error.line <= lines, "an error is in the file");
    expect(error.logged_line == 0 || error.logged_line >= error.line, "the framework counts more lines, never less");
  }
}

void check_texts(const Svc_Conf& conf, const std::string& text)
{
  for (const Directive& directive : conf.directives) {
    expect(!directive.name.empty(), "a service has a name");
    for (const std::string& part : {directive.name, directive.library, directive.symbol, directive.parameters})
      expect(text.find(part) != std::string::npos && part.size() <= 4096,
             "a word is one of the file, and not too long");
    expect(directive.verb == Directive::DYNAMIC || directive.symbol.empty(), "what is there already needs no factory");
  }
}

// A word that is as long as any may be ends the file, and quotes make a word longer.
bool is_far_from_limit(const Directive& directive)
{
  return std::max({directive.name.size(), directive.library.size(), directive.symbol.size(),
                   directive.parameters.size()}) < 4000;
}

// Only an error makes a directive of this kind.
bool is_cut_off(const Directive& directive)
{
  return directive.is_cut_off;
}

void check_written_down(const std::vector<Directive>& directives)
{
  if (std::any_of(directives.begin(), directives.end(), is_cut_off))
    return;
  if (!std::all_of(directives.begin(), directives.end(), is_far_from_limit))
    return;

  const Svc_Conf again = parse_svc_conf(write_down(directives));
  expect_equal("what has been written down", describe(directives), describe(again.directives));
  for (const Syntax_Error& error : again.errors)
    expect_equal("no error in what has been written down", "", error.message);
}

// The framework cuts its records.
bool is_logged_whole(const Directive& directive)
{
  return directive.name.size() < 3000 && directive.library.size() < 3000;
}

// Within the braces of a stream that is not there, the framework does not survive "remove" and "static".
bool is_survived(const std::string& text)
{
  const std::size_t brace = text.find('{');
  return brace == std::string::npos ||
         (text.find("remove", brace) == std::string::npos && text.find("static", brace) == std::string::npos);
}

void check_framework(const std::vector<Directive>& directives, const std::string& text)
{
  if (!is_survived(text) || !std::all_of(directives.begin(), directives.end(), is_logged_whole))
    return;

  static const Temp_Dir dir;
  const std::string path = dir.write("svc.conf", text);
  __lsan_disable(); // it leaks what it has read before an error
  const std::string account = framework_account(path);
  __lsan_enable();
  expect_equal("what the framework reads", account, parser_account(text));
}
} // namespace

// The framework finds no library, whatever an input names.
extern "C" void* dlopen(const char*, int)
{
  return nullptr;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  const std::string text = input_text(data, size);
  const Svc_Conf conf = parse_svc_conf(text);
  check_lines(conf, text);
  check_texts(conf, text);
  check_framework(conf.directives, text);
  check_written_down(conf.directives);
  return 0;
}
