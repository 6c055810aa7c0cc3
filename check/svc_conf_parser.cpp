#include "check/svc_conf_parser.h"

#include <cstring>
#include <initializer_list>
#include <utility>

namespace
{
enum { MAX_TOKEN_SIZE = 4096, END = 0, WORD = 256, PATH, QUOTED, DYNAMIC, STATIC, SUSPEND, RESUME, REMOVE, STREAM };
enum { MODULE_TYPE = 300, SERVICE_TYPE, STREAM_TYPE, ACTIVE, INACTIVE };

struct Token
{
  int kind = END; // END, one of the above, or a character
  std::string text;
  int line = 1;        // where it begins
  int logged_line = 1; // what the framework has counted by its end: a line too much for each word that ends one
};

struct Keyword
{
  const char* text;
  int kind;
};

const Keyword KEYWORDS[] = {
    {"dynamic", DYNAMIC},    {"static", STATIC}, {"suspend", SUSPEND},    {"resume", RESUME},
    {"remove", REMOVE},      {"stream", STREAM}, {"Module", MODULE_TYPE}, {"Service_Object", SERVICE_TYPE},
    {"STREAM", STREAM_TYPE}, {"active", ACTIVE}, {"inactive", INACTIVE}};

bool is_space(char c)
{
  return c != '\0' && std::strchr(" \t\n\v\f\r", c);
}

bool is_separator(char c)
{
  return std::strchr(" \t\r\n:*(){}", c) != nullptr; // the zero byte too
}

bool is_letter(char c)
{
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

class Lexer
{
public:
  Lexer(const std::string& text, std::vector<Syntax_Error>& errors) : text_(text), errors_(errors) {}

  Token next();

private:
  char at(std::size_t i) const { return i < text_.size() ? text_[i] : '\n'; } // the end is one of a line
  void skip_line();
  bool is_drive(std::size_t i) const;
  Token make_word(std::size_t end);
  Token make_quoted(char quote, std::size_t from);
  Token make_token(int kind, const std::string& text, std::size_t next_at);
  Token end_at(const char* message);
  void end_in(std::size_t at);

  std::string text_;
  std::vector<Syntax_Error>& errors_;
  std::size_t at_ = 0; // where the next token begins
  int line_ = 1;
  int logged_line_ = 1;
};

Token Lexer::make_token(int kind, const std::string& text, std::size_t next_at)
{
  Token token;
  token.kind = kind;
  token.text = text;
  token.line = line_;
  token.logged_line = logged_line_;
  at_ = next_at;
  return token;
}

// Nothing is read after this one.
Token Lexer::end_at(const char* message)
{
  errors_.push_back({line_, message, logged_line_});
  text_.resize(at_);
  return make_token(END, "", at_);
}

// A comment takes along what stands before it in its word: the framework goes on after the line.
void Lexer::skip_line()
{
  const std::size_t end = text_.find('\n', at_);
  at_ = end == std::string::npos ? text_.size() + 1 : end + 1;
  ++line_;
  ++logged_line_;
}

// A colon after a single letter belongs to a path.
bool Lexer::is_drive(std::size_t i) const
{
  return i == at_ + 1 && at(i) == ':' && (is_letter(text_[at_]) || text_[at_] == '%');
}

static int word_kind(const std::string& word)
{
  for (const Keyword& keyword : KEYWORDS)
    if (word == keyword.text)
      return keyword.kind;

  const bool is_path = (word[0] >= '0' && word[0] <= '9') || word.find_first_of("/\\:%.~-") != std::string::npos;
  return is_path ? PATH : WORD;
}

Token Lexer::make_word(std::size_t end)
{
  if (at(end) == '\n')
    ++logged_line_; // the framework meets it again before the next token
  const std::string word = text_.substr(at_, end - at_);
  return make_token(word_kind(word), word, end);
}

// What stands between the first character of the word, whether that is the quote or not, and the last quote before a
// character that is not printable.
Token Lexer::make_quoted(char quote, std::size_t from)
{
  std::size_t end = from;
  for (;; ++end) {
    if (end == at_ + MAX_TOKEN_SIZE)
      end_in(end);
    if (at(end) < ' ' || at(end) > '~')
      break;
  }

  const std::size_t last = text_.rfind(quote, end - 1);
  if (last <= at_)
    return end_at("unable to find the end of the string; the rest is not read");
  return make_token(QUOTED, text_.substr(at_ + 1, last - at_ - 1), last + 1);
}

// The framework's buffer is full: it takes that for the end of the input.
void Lexer::end_in(std::size_t at)
{
  if (at >= text_.size())
    return;
  errors_.push_back({line_, "a word or string of 4096 bytes; the rest is not read", 0});
  text_.resize(at);
}

Token Lexer::next()
{
  for (;;) {
    for (; at_ < text_.size() && is_space(text_[at_]); ++at_)
      if (text_[at_] == '\n') {
        ++line_;
        ++logged_line_;
      }
    if (at_ >= text_.size()) {
      if (at_ == text_.size())
        ++logged_line_; // the end counts as one of a line
      return make_token(END, "", text_.size() + 1);
    }

    for (std::size_t i = at_;; ++i) {
      if (i == at_ + MAX_TOKEN_SIZE)
        end_in(i);
      const char c = at(i);
      if (c == '#') {
        skip_line();
        break;
      }
      if (c == '"' || c == '\'')
        return make_quoted(c, i + 1);
      if (!is_separator(c) || is_drive(i))
        continue;
      if (i == at_ && c == '\0')
        errors_.push_back({line_, "a zero byte; the rest is not read", 0});
      if (i == at_)
        return make_token(c, std::string(1, c), i + 1);
      return make_word(i);
    }
  }
}

class Parser
{
public:
  explicit Parser(const std::string& text) : lexer_(text, result_.errors) { token_ = lexer_.next(); }

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
  void add(Directive& directive);

  Svc_Conf result_;
  Lexer lexer_;
  Token token_;
  std::vector<Directive> entry_;
  int quiet_ = 0; // how many tokens the framework still has to accept before it reports an error again
};

void Parser::next()
{
  if (quiet_ > 0)
    --quiet_;
  const int line = token_.line;
  token_ = lexer_.next();
  if (token_.kind == END)
    token_.line = line; // nobody looks for an error in the empty lines at the end
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
  const std::string found = token_.kind == END      ? "the end"
                            : token_.kind == QUOTED ? '"' + token_.text + '"'
                                                    : '\'' + token_.text + '\'';
  result_.errors.push_back({token_.line, what + " expected, not " + found, quiet_ == 0 ? token_.logged_line : 0});
  return false;
}

bool Parser::expect(int kind, const char* what)
{
  return accept(kind) || fail(what);
}

bool Parser::expect_name(Directive& directive)
{
  directive.name = token_.text;
  return expect(WORD, "the name of a service");
}

void Parser::parse_parameters(Directive& directive)
{
  if (token_.kind != QUOTED)
    return;
  directive.has_parameters = true;
  directive.parameters = token_.text;
  next();
}

// [LIBRARY] : SYMBOL [( )]
bool Parser::parse_factory(Directive& directive)
{
  const bool is_static = token_.kind == ':';
  if (!is_static) {
    directive.library = token_.text;
    if (!accept(PATH) && !accept(WORD) && !accept(QUOTED))
      return fail("a library");
  }
  if (!expect(':', "':' after the library"))
    return false;

  directive.symbol = token_.text;
  if (!expect(WORD, "the name of a factory"))
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
  directive.type = token_.kind == MODULE_TYPE   ? Directive::MODULE
                   : token_.kind == STREAM_TYPE ? Directive::STREAM_OBJECT
                                                : Directive::SERVICE_OBJECT;
  if (!accept(SERVICE_TYPE) && !accept(MODULE_TYPE) && !accept(STREAM_TYPE))
    return fail("Service_Object, Module or STREAM");
  if (!expect('*', "'*' after the type") || !parse_factory(directive))
    return false;

  if (!accept(ACTIVE))
    (void)accept(INACTIVE); // both may be left out
  parse_parameters(directive);
  return true;
}

void Parser::add(Directive& directive)
{
  entry_.push_back(directive);
}

// One that begins with any word but "stream"; the token is that word.
bool Parser::parse_directive(Directive& directive)
{
  static constexpr std::pair<int, Directive::Verb> VERBS[] = {{STATIC, Directive::STATIC},
                                                              {SUSPEND, Directive::SUSPEND},
                                                              {RESUME, Directive::RESUME},
                                                              {REMOVE, Directive::REMOVE}};
  directive.line = token_.line;
  if (accept(DYNAMIC)) {
    directive.verb = Directive::DYNAMIC;
    return parse_dynamic(directive);
  }

  for (const auto& [kind, verb] : VERBS)
    if (accept(kind)) {
      directive.verb = verb;
      if (!expect_name(directive))
        return false;
      if (kind == STATIC)
        parse_parameters(directive);
      return true;
    }
  return fail("a directive");
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
    add(module);
  }
  return true;
}

// stream NAME|dynamic ...|static ... [{ modules }]
bool Parser::parse_stream()
{
  Directive stream;
  stream.verb = Directive::STREAM;
  stream.line = token_.line;
  next();

  if (token_.kind == DYNAMIC || token_.kind == STATIC) {
    if (!parse_directive(stream))
      return false;
  } else if (!expect_name(stream))
    return false;

  add(stream);
  return parse_modules();
}

bool Parser::parse_entry()
{
  if (token_.kind == STREAM)
    return parse_stream();

  Directive directive;
  if (!parse_directive(directive))
    return false;
  add(directive);
  return true;
}

static bool begins_directive(int kind)
{
  for (const int verb : {DYNAMIC, STATIC, SUSPEND, RESUME, REMOVE, STREAM})
    if (kind == verb)
      return true;
  return false;
}

Svc_Conf Parser::parse()
{
  while (token_.kind != END) {
    entry_.clear();
    if (parse_entry()) {
      result_.directives.insert(result_.directives.end(), entry_.begin(), entry_.end());
      continue;
    }

    // A directive with an error in it does nothing at all; reading goes on where one may begin.
    quiet_ = 0;
    while (token_.kind != END && !begins_directive(token_.kind))
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
