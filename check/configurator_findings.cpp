#include "check/configurator_findings.h"

#include "check/substitution.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>

namespace
{
using Texts = std::vector<std::string>;

std::string describe(const Configurator_Option& option)
{
  return std::string("'-") + option.first + (option.second.empty() ? "" : ' ' + option.second) + '\'';
}

std::string describe_value(char letter, const std::string& value)
{
  return std::string("-") + letter + " '" + value + '\'';
}

std::string list(const Texts& words, std::size_t from)
{
  std::string text;
  for (std::size_t i = from; i < words.size(); ++i)
    text += (i == from ? "'" : " '") + words[i] + '\'';
  return text;
}

// An option that the configurator takes, and the one that is meant by it, or null.
struct Taken
{
  Configurator_Option option;
  const Meant_Option* meant;
};

class Comparison
{
public:
  Comparison(const std::vector<Meant_Option>& meant, int argc, char** argv, Findings& findings);

  void compare();

private:
  Texts next_words(std::size_t i);
  void check_option(std::size_t i);
  bool is_taken(const Configurator_Option& option, const Meant_Option& meant);
  void check_lost(const Meant_Option& option, const Texts& words);
  void check_variables_of(const Meant_Option& option, const Texts& words);
  void check_taken();
  void add(Finding_Kind kind, const std::string& message) { findings_.push_back({kind, {}, message}); }

  const std::vector<Meant_Option>& meant_;
  const Texts vector_; // the one that the configurator gets
  Findings& findings_;
  std::vector<Taken> taken_;
  std::vector<bool> is_as_meant_; // by the number of the option
  std::size_t counted_ = 0;       // the options whose words are known
  std::size_t words_ = 1;         // the words of these options, and the name of the program
};

Comparison::Comparison(const std::vector<Meant_Option>& meant, int argc, char** argv, Findings& findings)
    : meant_(meant), vector_(argv, argv + argc), findings_(findings)
{
  for (const Configurator_Option& option : taken_service_options(argc, argv))
    taken_.push_back({option, nullptr});
  for (const Configurator_Option& option : taken_process_options(argc, argv))
    taken_.push_back({option, nullptr});
}

// Note that what the configurator takes as `option` comes from `meant`. False if it takes nothing of that kind.
bool Comparison::is_taken(const Configurator_Option& option, const Meant_Option& meant)
{
  const auto found = std::find_if(taken_.begin(), taken_.end(),
                                  [&option](const Taken& taken) { return !taken.meant && taken.option == option; });
  if (found == taken_.end())
    return false;
  found->meant = &meant;
  return true;
}

// The words that an option adds to the vector; words_ is the position of the first one then.
Texts Comparison::next_words(std::size_t i)
{
  if (counted_ != i)
    words_ = framework_words(meant_, i).size();
  counted_ = i;
  if (words_ >= vector_.size())
    return {}; // an open quote has swallowed the rest

  const Texts words = framework_words(meant_, i + 1);
  return Texts(words.begin() + static_cast<std::ptrdiff_t>(words_), words.end());
}

void Comparison::check_lost(const Meant_Option& option, const Texts& words)
{
  const std::string letter = std::string("-") + option.letter;
  const std::string what = describe_value(option.letter, option.value) + ": ";
  const bool is_whole = words == (option.has_value ? Texts{letter, option.value} : Texts{letter});
  if (is_whole && option.is_found && substitute_variable(option.value) != option.value)
    add(Finding_Kind::ALTERED_VALUE, what + "the framework replaces a variable in the name of this file");
  else if (is_whole)
    add(Finding_Kind::IGNORED_ARGUMENT,
        describe({option.letter, option.value}) + " does not get to the configurator: " +
            (std::getenv("POSIXLY_CORRECT") ? "POSIXLY_CORRECT is set, and a value before it ends the options"
                                            : "values before it make the configurator read it otherwise"));
  else if (words.empty())
    add(Finding_Kind::IGNORED_ARGUMENT,
        describe({option.letter, option.value}) + " does not get to the configurator: a quote before it is not closed");
  else if (words[0] != letter)
    add(Finding_Kind::ALTERED_VALUE, what + "the framework joins it to a value before it, as " + list(words, 0));
  else if (option.value.empty())
    add(Finding_Kind::ALTERED_VALUE, what + "an empty value vanishes, and the option takes the word after it");
  else if (words.size() > 1)
    add(Finding_Kind::ALTERED_VALUE, what + "the framework reads this value as " + list(words, 1));
  else if (option.value.find_first_of("'\"") == std::string::npos)
    add(Finding_Kind::ALTERED_VALUE, what + "white space vanishes, and the option takes the word after it");
  else
    add(Finding_Kind::ALTERED_VALUE,
        what + "a quote in it is not closed, and takes in the words after it up to the next such quote");
}

// Variables that remain in a directive of -S are replaced among the parameters of its service and looked at there.
void Comparison::check_variables_of(const Meant_Option& option, const Texts& words)
{
  if (option.is_found || (option.letter == 'S' && option.is_passed))
    return;
  for (const std::string& word : words)
    for (const std::string& problem : check_variables(word))
      add(Finding_Kind::VARIABLE_NOT_SET, describe_value(option.letter, option.value) + ": " + problem);
}

void Comparison::check_option(std::size_t i)
{
  const Meant_Option& option = meant_[i];
  if (is_as_meant_[i] || !option.is_passed) {
    check_variables_of(option, {option.value});
    return;
  }

  Texts words = next_words(i);
  check_lost(option, words);
  const bool has_letter = !words.empty() && words[0] == std::string("-") + option.letter;
  if (has_letter && option.has_value && words_ + 1 < vector_.size())
    (void)is_taken({option.letter, vector_[words_ + 1]}, option); // its altered form needs no other finding
  if (has_letter)
    words.erase(words.begin());
  check_variables_of(option, words);
}

// The later one of an option that is taken out of a value counts too.
void Comparison::check_taken()
{
  for (const Taken& taken : taken_) {
    const bool is_single = taken.option.first == 'k' || taken.option.first == 'p';
    if (!taken.meant)
      add(Finding_Kind::READ_TWICE, "the configurator takes " + describe(taken.option) + " out of a value");
    else if (is_single && std::any_of(taken_.begin(), taken_.end(), [&taken](const Taken& other) {
               return &other > &taken && other.option.first == taken.option.first;
             }))
      add(Finding_Kind::IGNORED_ARGUMENT,
          describe_value(taken.meant->letter, taken.meant->value) + " is ignored: it is given again later");
  }
}

void Comparison::compare()
{
  for (const Meant_Option& option : meant_)
    is_as_meant_.push_back(option.is_passed && is_taken(expected_option(option), option));
  for (std::size_t i = 0; i < meant_.size(); ++i)
    check_option(i);
  check_taken();
}
} // namespace

void check_configurator_options(const std::vector<Meant_Option>& meant, int argc, char** argv, Findings& findings)
{
  Comparison(meant, argc, argv, findings).compare();
}
