#include "check/long_strings.h"

#include "check/characters.h"
#include "check/directive_verbs.h"

#include <algorithm>
#include <vector>

// Whether a directive begins here, perhaps behind the end of the braces of another one.
static bool begins_directive(const std::string& text)
{
  std::vector<Syntax_Error> ignored;
  Lexer lexer(text, ignored);
  Token token = lexer.next();
  while (token.kind == '}')
    token = lexer.next();
  const bool is_verb = find_verb(token.kind);
  token = lexer.next();
  return is_verb && (token.kind == Token::WORD || find_verb(token.kind));
}

// What a string takes in that is not meant for it. Its text may hold more quotes; between two strings that end at their
// next quotes, a directive may begin behind a blank, or a comment.
static String_Problem find_taken_in(const std::string& text, char quote)
{
  String_Problem problem = String_Problem::NONE;
  bool is_between = false;
  for (std::size_t at = 0;;) {
    const std::size_t end = std::min(text.find(quote, at), text.size());
    const std::string part = text.substr(at, end - at);
    const std::size_t word = std::min(part.find_first_not_of(' '), part.size());
    if (is_between && word > 0 && begins_directive(part))
      return String_Problem::DIRECTIVE_TAKEN_IN;
    if (is_between && part.compare(word, 1, "#") == 0)
      return String_Problem::COMMENT_TAKEN_IN;
    if (end == text.size())
      return problem;

    problem = String_Problem::QUOTE_TAKEN_IN;
    is_between = !is_between;
    at = end + 1;
  }
}

void note_string_problem(Directive& directive, const Token& string)
{
  directive.string_problem = find_taken_in(string.text, string.quote);
  if (!string.word.empty()) {
    directive.string_problem = String_Problem::BEGINS_IN_WORD;
    directive.odd_character = name_odd_character(string.word);
  } else if (directive.string_problem == String_Problem::QUOTE_TAKEN_IN && !string.cut_at.empty()) {
    directive.string_problem = String_Problem::CUT;
    directive.odd_character = string.cut_at;
  }
}
