#include "check/directive_verbs.h"

#include "check/svc_conf_lexer.h"

const Verb* find_verb(int kind)
{
  static constexpr Verb VERBS[] = {{Token::DYNAMIC, Directive::DYNAMIC}, {Token::STATIC, Directive::STATIC},
                                   {Token::SUSPEND, Directive::SUSPEND}, {Token::RESUME, Directive::RESUME},
                                   {Token::REMOVE, Directive::REMOVE},   {Token::STREAM, Directive::STREAM}};
  for (const Verb& verb : VERBS)
    if (verb.kind == kind)
      return &verb;
  return nullptr;
}
