#include "check/substitution.h"

#include "starter/open_service_config.h"

#include <ace/ARGV.h>
#include <ace/OS_NS_stdlib.h>

#include <cstdlib>

// The name behind the dollar sign, up to where the framework ends it. A quote or a backslash that is still in a word
// ends the name too.
static std::string variable_name(const std::string& text, std::size_t dollar)
{
  const std::size_t end = text.find_first_of(std::string(VARIABLE_NAME_ENDS) + "\\'\"", dollar + 1);
  return text.substr(dollar + 1, end == std::string::npos ? end : end - dollar - 1);
}

std::vector<std::string> check_variables(const std::string& text)
{
  std::vector<std::string> problems;
  if (!is_safe_to_substitute(text.c_str())) {
    problems.emplace_back("the name of a variable is too long for the framework");
    return problems;
  }

  const std::size_t first = text.find('$');
  for (std::size_t at = first; at != std::string::npos; at = text.find('$', at + 1)) {
    const std::string name = variable_name(text, at);
    if (name.empty() && text.compare(at, 2, "${") == 0)
      problems.emplace_back("the framework knows no ${...}: write $NAME");
    else if (name.empty())
      continue; // the dollar sign stands for itself
    else if (at != first)
      problems.push_back("$" + name + " stays as it is: only what follows the first dollar sign is replaced");
    else if (!std::getenv(name.c_str()))
      problems.push_back("$" + name + " is not set and stays as it is");
  }
  return problems;
}

std::string substitute_variable(const std::string& word)
{
  if (!is_safe_to_substitute(word.c_str()))
    return word;

  char* const text = ACE_OS::strenvdup(word.c_str());
  std::string result = text ? text : word;
  ACE_OS::free(text);
  return result;
}

std::string check_left_out(const std::string& parameters)
{
  if (parameters.compare(0, 1, "#") == 0)
    return "all of it is left out, as a comment";

  std::size_t at = 0;
  while ((at = parameters.find_first_of("'\"", at)) != std::string::npos) {
    std::size_t end = at + 1;
    while (end < parameters.size() && (parameters[end] != parameters[at] || parameters[end - 1] == '\\'))
      ++end;
    if (end == parameters.size())
      return "the word with " + parameters.substr(at) + " is left out: the quote is not closed";
    at = end + 1;
  }
  return "";
}

std::vector<std::string> split_parameters(const std::string& parameters)
{
  std::vector<std::string> words;
  ACE_ARGV args(parameters.c_str(), false);
  for (int i = 0; i < args.argc() && args.argv()[i]; ++i)
    words.emplace_back(args.argv()[i]);
  return words;
}
