#ifndef CHECK_LONG_STRINGS_H
#define CHECK_LONG_STRINGS_H

#include "check/svc_conf.h"
#include "check/svc_conf_lexer.h"

/// Note in `directive` what is wrong with the string of its parameters: it goes up to the last quote of its line, and
/// takes in more than is meant for it, or it ends before that quote, or begins within a word. Any thread.
void note_string_problem(Directive& directive, const Token& string);

#endif // CHECK_LONG_STRINGS_H
