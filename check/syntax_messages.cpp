#include "check/syntax_messages.h"

#include "check/characters.h"

#include <algorithm>

// Whether the string of the token takes in more than a reader sees in it.
static bool is_too_long(const Token& token)
{
  return token.kind == Token::QUOTED && token.text.find(token.quote) != std::string::npos;
}

static std::string describe(const Token& token)
{
  if (token.kind == Token::END)
    return "the end";
  const char* const quote = token.kind == Token::QUOTED ? "\"" : "'";
  return quote + escape_bytes(token.text) + quote;
}

Expectation describe_expectation(const std::string& what, const Token& token, const Token& former)
{
  if (is_too_long(former) || is_too_long(token)) {
    const Token& string = is_too_long(former) ? former : token;
    return {what + " expected: a string goes up to the last quote of its line, and this one is " + describe(string),
            string.line};
  }

  const std::string message = what + " expected, not " + describe(token);
  if (const std::string odd = name_odd_character(token.text); !odd.empty())
    return {message + ": " + odd + " belongs to this word", token.line};
  return {token.kind == '{' ? message + ": modules need 'stream dynamic'" : message, token.line};
}

std::string without_arguments(const Directive& directive)
{
  const bool takes_arguments = directive.verb == Directive::DYNAMIC || directive.verb == Directive::STATIC;
  return takes_arguments ? "; service '" + directive.name + "' starts without arguments" : "";
}

bool is_left_over(const Svc_Conf& former, const Token& token, const Token& last)
{
  const bool is_behind_error = !former.errors.empty() && former.errors.back().line == token.line;
  const bool is_behind_string = !former.directives.empty() && last.line == token.line &&
                                former.directives.back().string_problem != String_Problem::NONE;
  const bool is_end_of_braces =
      token.kind == '}' && std::any_of(former.directives.begin(), former.directives.end(),
                                       [](const Directive& directive) { return directive.has_stray_braces; });
  return is_behind_error || is_behind_string || is_end_of_braces;
}
