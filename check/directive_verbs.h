#ifndef CHECK_DIRECTIVE_VERBS_H
#define CHECK_DIRECTIVE_VERBS_H

#include "check/svc_conf.h"

/// The word that begins a directive.
struct Verb
{
  int kind; ///< of the token
  Directive::Verb verb;
};

/// The verb that a token of this kind is, or null. It lives for ever. Any thread.
const Verb* find_verb(int kind);

#endif // CHECK_DIRECTIVE_VERBS_H
