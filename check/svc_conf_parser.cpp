#include "check/svc_conf_parser.h"

#include "check/directive_verbs.h"
#include "check/long_strings.h"
#include "check/svc_conf_lexer.h"
#include "check/syntax_messages.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace
{
class Parser
{
public:
  explicit Parser(const std::string& text) : lexer_(text, result_.errors) { next(); }

  Svc_Conf parse();

private:
  void next();
  bool accept(int kind);
  bool expect(int kind, const char* what);
  bool expect_name(Directive& directive);
  bool fail(const std::string& what);

  bool parse_entry();
  bool parse_directive(Directive& directive);
  bool parse_dynamic(Directive& directive);
  bool parse_factory(Directive& directive);
  void parse_parameters(Directive& directive);
  bool parse_stream();
  bool parse_modules();
  void cut_off();

  Svc_Conf result_;
  Lexer lexer_;
  Token token_;
  Token former_;                    // the token before it
  bool is_reported_ = false;        // the lexer has reported an error at the token at hand
  std::vector<Directive> entry_;    // the directive that is being read, and its modules if it is a stream
  bool is_between_entries_ = false; // no directive has begun yet
  int quiet_ = 0;                   // the tokens that the framework has to accept before it reports an error again
};

void Parser::next()
{
  if (quiet_ > 0)
    --quiet_;
  const std::size_t errors_count = result_.errors.size();
  former_ = std::exchange(token_, lexer_.next());
  is_reported_ = result_.errors.size() > errors_count;
  if (token_.kind == Token::END)
    token_.line = former_.line; // nobody looks for an error in the empty lines at the end
}

bool Parser::accept(int kind)
{
  if (token_.kind != kind)
    return false;
  next();
  return true;
}

bool Parser::fail(const std::string& what)
{
  Expectation expectation = describe_expectation(what, token_, former_);
  const bool is_stray = is_between_entries_ && !result_.directives.empty() && former_.line == token_.line;
  if (is_stray && token_.kind == '{')
    result_.directives.back().has_stray_braces = true;
  else if (is_stray && !result_.directives.back().has_parameters)
    expectation.message += without_arguments(result_.directives.back());

  const int logged_line = quiet_ == 0 ? token_.logged_line : 0;
  const bool is_follow_on = is_reported_ || (is_between_entries_ && is_left_over(result_, token_, former_));
  result_.errors.push_back({expectation.line, expectation.message, logged_line, is_follow_on});
  return false;
}

bool Parser::expect(int kind, const char* what)
{
  return accept(kind) || fail(what);
}

bool Parser::expect_name(Directive& directive)
{
  directive.name = token_.text;
  return expect(Token::WORD, "the name of a service");
}

void Parser::parse_parameters(Directive& directive)
{
  if (is_reported_)
    result_.errors.back().message += without_arguments(directive);
  if (token_.kind != Token::QUOTED)
    return;
  directive.has_parameters = true;
  directive.parameters = token_.text;
  note_string_problem(directive, token_);
  next();
}

// [LIBRARY] : SYMBOL [( )]
bool Parser::parse_factory(Directive& directive)
{
  const bool is_static = token_.kind == ':';
  if (!is_static) {
    directive.library = token_.text;
    if (!accept(Token::PATH) && !accept(Token::WORD) && !accept(Token::QUOTED))
      return fail("a library");
  }
  if (!expect(':', "':' after the library"))
    return false;

  directive.symbol = token_.text;
  if (!expect(Token::WORD, "the name of a factory"))
    return false;
  directive.factory = is_static ? Directive::STATIC_FUNCTION : Directive::OBJECT;
  if (!is_static && token_.kind != '(')
    return true;

  if (!is_static)
    directive.factory = Directive::FUNCTION;
  return expect('(', "'('") && expect(')', "')'");
}

// NAME TYPE * FACTORY [active | inactive] [PARAMETERS]
bool Parser::parse_dynamic(Directive& directive)
{
  if (!expect_name(directive))
    return false;
  directive.type = token_.kind == Token::MODULE_TYPE   ? Directive::MODULE
                   : token_.kind == Token::STREAM_TYPE ? Directive::STREAM_OBJECT
                                                       : Directive::SERVICE_OBJECT;
  if (!accept(Token::SERVICE_TYPE) && !accept(Token::MODULE_TYPE) && !accept(Token::STREAM_TYPE))
    return fail("Service_Object, Module or STREAM");
  if (!expect('*', "'*' after the type") || !parse_factory(directive))
    return false;

  directive.is_inactive = token_.kind == Token::INACTIVE;
  if (!accept(Token::ACTIVE))
    (void)accept(Token::INACTIVE); // both may be left out
  parse_parameters(directive);
  return true;
}

// Any directive but a stream. The token at hand is its verb.
bool Parser::parse_directive(Directive& directive)
{
  const Verb* const verb = find_verb(token_.kind);
  if (!verb || verb->verb == Directive::STREAM)
    return fail("a directive");
  is_between_entries_ = false;

  directive.line = token_.line;
  directive.verb = verb->verb;
  next();
  if (directive.verb == Directive::DYNAMIC)
    return parse_dynamic(directive);
  if (!expect_name(directive))
    return false;
  if (directive.verb == Directive::STATIC)
    parse_parameters(directive);
  return true;
}

bool Parser::parse_modules()
{
  if (!accept('{'))
    return true;

  while (!accept('}')) {
    Directive module;
    module.in_stream = true;
    if (!parse_directive(module))
      return false;
    entry_.push_back(module);
  }
  return true;
}

// stream NAME|dynamic ...|static ... [{ modules }]
bool Parser::parse_stream()
{
  is_between_entries_ = false;
  Directive stream;
  stream.verb = Directive::STREAM;
  stream.line = token_.line;
  next();

  if (token_.kind == Token::DYNAMIC || token_.kind == Token::STATIC) {
    if (!parse_directive(stream))
      return false;
  } else if (!expect_name(stream))
    return false;

  entry_.push_back(stream);
  return parse_modules();
}

bool Parser::parse_entry()
{
  is_between_entries_ = true;
  if (token_.kind == Token::STREAM)
    return parse_stream();

  Directive directive;
  if (!parse_directive(directive))
    return false;
  entry_.push_back(directive);
  return true;
}

// Inside braces the framework executes a directive that is no module as soon as it has read it.
void Parser::cut_off()
{
  const auto is_module = [](const Directive& d) { return d.in_stream && d.verb == Directive::DYNAMIC; };
  entry_.erase(std::remove_if(entry_.begin(), entry_.end(), is_module), entry_.end());
  if (entry_.size() < 2)
    return;

  Directive stream;
  stream.verb = Directive::STREAM;
  stream.name = entry_[0].name;
  stream.line = entry_[0].line;
  stream.is_cut_off = true;
  entry_[0] = stream;
  result_.directives.insert(result_.directives.end(), entry_.begin(), entry_.end());
}

Svc_Conf Parser::parse()
{
  while (token_.kind != Token::END) {
    entry_.clear();
    if (parse_entry()) {
      result_.directives.insert(result_.directives.end(), entry_.begin(), entry_.end());
      continue;
    }

    // A directive with an error in it does nothing itself; reading goes on where the next one may begin.
    cut_off();
    quiet_ = 0;
    while (token_.kind != Token::END && !find_verb(token_.kind))
      next();
    quiet_ = 3;
  }
  return std::move(result_);
}
} // namespace

Svc_Conf parse_svc_conf(const std::string& text)
{
  return Parser(text).parse();
}
