// This target holds the checker's forecast of what the framework makes of a text against what the framework makes of
// it. The input is the text, which serves as the value of an option and as the parameters of a service.

#include "check/configurator_findings.h"
#include "check/meant_options.h"
#include "check/substitution.h"
#include "starter/open_service_config.h"
#include "tests/fuzz/framework_line.h"

#include <ace/ARGV.h>

#include <cstdlib>

namespace
{
Texts words_of(ACE_ARGV& args)
{
  char** const argv = args.argv();
  return argv ? Texts(argv, argv + args.argc()) : Texts{};
}

// Each reference that stays as it is has a problem of its own, which names it.
void check_forecast_of_variables(const std::string& text)
{
  const std::vector<std::string> problems = check_variables(text);
  if (!is_survived(text)) {
    expect_equal("too long a name", {"the name of a variable is too long for the framework"}, problems);
    return;
  }

  std::size_t count = 0;
  const std::size_t first = text.find('$');
  for (std::size_t at = first; at != std::string::npos; at = text.find('$', at + 1)) {
    const std::string name = name_behind(text, at);
    const bool is_brace = text.compare(at, 2, "${") == 0;
    if ((name.empty() && !is_brace) || (at == first && !is_brace && std::getenv(name.c_str())))
      continue;
    expect(count < problems.size(), "every reference that stays has a problem");
    const std::string& problem = problems[count++];
    expect(problem.find(is_brace ? "${...}" : '$' + name + ' ') != std::string::npos, "a problem names the reference");
  }
  expect(count == problems.size(), "a reference that is replaced has no problem");
}

void check_forecast_of_substitution(const std::string& word)
{
  if (!is_survived(word))
    return;

  char* const replaced = ACE_OS::strenvdup(word.c_str());
  expect_equal("a word with its variable replaced", substitute(word), replaced);
  expect_equal("a word with its variable replaced by the checker", replaced, substitute_variable(word));
  const std::size_t first = word.find('$');
  if (first != std::string::npos && !name_behind(word, first).empty() && check_variables(word).empty())
    expect(std::getenv(name_behind(word, first).c_str()) != nullptr, "a variable without a problem is set");
  ACE_OS::free(replaced);
}

// The configurator gets a value that has no finding as it is, and another one otherwise, or with a variable in it.
void check_value(const std::string& value)
{
  if (!is_survived(value))
    return;

  std::string name = "starter", letter = "-k", text = value, last = "-d";
  char* argv[] = {name.data(), letter.data(), text.data(), last.data(), nullptr};
  const std::vector<Meant_Option> meant = meant_options(4, argv);
  const std::string line = "starter " + join({"-k", value}) + " -d";
  expect_equal("the words of a value", split(line).words, framework_words(meant, meant.size()));

  Findings findings;
  Texts passed;
  open_service_config(4, argv, true, [&](int argc, char** vector) {
    passed.assign(vector, vector + argc);
    check_configurator_options(meant, argc, vector, findings);
    return true;
  });
  const Texts expected{"starter", "-k", substitute(value), "-d"};
  if (findings.empty())
    expect_equal("a value without a finding", expected, passed);
  else if (passed == expected)
    expect(!check_variables(value).empty() || value[0] == '-', "a value with a finding is altered or read twice");
}

void check_parameters(const std::string& parameters)
{
  const Words words = split(parameters);
  expect_equal("parameters", words.words, split_parameters(parameters));
  expect(check_left_out(parameters).empty() == words.is_whole, "what is left out has a problem");
}

// The oracle itself has to make and cut the same line as the framework.
void check_line(const std::string& text)
{
  const Texts texts{"-x", text, text};
  ACE_ARGV args(false);
  for (const std::string& word : texts)
    args.add(word.c_str(), true);
  const Texts words = words_of(args); // which makes the line
  expect_equal("a line", join(texts), args.buf());
  expect_equal("words of a line", split(join(texts)).words, words);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  set_environment();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  const std::string text(input_text(data, size).c_str());
  check_line(text);
  check_forecast_of_variables(text);
  check_forecast_of_substitution(text);
  check_value(text);
  check_parameters(text);
  for (const std::string& word : split(text).words)
    check_forecast_of_substitution(word);
  return 0;
}
