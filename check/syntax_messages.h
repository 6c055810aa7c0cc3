#ifndef CHECK_SYNTAX_MESSAGES_H
#define CHECK_SYNTAX_MESSAGES_H

#include "check/svc_conf.h"
#include "check/svc_conf_lexer.h"

#include <string>

/// The words for a token that is not what the parser expects, and the line in which the cause stands.
struct Expectation
{
  std::string message;
  int line;
};

/// Describe that `what` was expected in the place of `token`, with the reason if the token or the one before it tells
/// one: a string that is longer than it looks, or a character that looks like another. Any thread.
Expectation describe_expectation(const std::string& what, const Token& token, const Token& former);

/// Whether a token that begins no directive has the same cause as an error or the string of a directive in `former`
/// content: it is left over on the same line, or closes braces that had no place. `last` is the token before it. Any
/// thread.
bool is_left_over(const Svc_Conf& former, const Token& token, const Token& last);

/// The meaning that an error behind a directive has for its service, as the end of a message. Empty if the directive
/// takes no arguments. Any thread.
std::string without_arguments(const Directive& directive);

#endif // CHECK_SYNTAX_MESSAGES_H
