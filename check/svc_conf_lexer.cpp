#include "check/svc_conf_lexer.h"

#include "check/characters.h"

#include <algorithm>
#include <cstring>

// The framework's buffer for a token has this size. When it is full, the framework takes that for the end of the input.
enum { MAX_TOKEN_SIZE = 4096 };

static bool is_space(char c)
{
  return c != '\0' && std::strchr(" \t\n\v\f\r", c);
}

static bool is_separator(char c)
{
  return std::strchr(" \t\r\n:*(){}", c) != nullptr; // the zero byte is one too
}

static bool is_letter(char c)
{
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

static int word_kind(const std::string& word)
{
  static const struct
  {
    const char* text;
    int kind;
  } KEYWORDS[] = {{"dynamic", Token::DYNAMIC},    {"static", Token::STATIC},
                  {"suspend", Token::SUSPEND},    {"resume", Token::RESUME},
                  {"remove", Token::REMOVE},      {"stream", Token::STREAM},
                  {"Module", Token::MODULE_TYPE}, {"Service_Object", Token::SERVICE_TYPE},
                  {"STREAM", Token::STREAM_TYPE}, {"active", Token::ACTIVE},
                  {"inactive", Token::INACTIVE}};
  for (const auto& keyword : KEYWORDS)
    if (word == keyword.text)
      return keyword.kind;

  const bool is_path = (word[0] >= '0' && word[0] <= '9') || word.find_first_of("/\\:%.~-") != std::string::npos;
  return is_path ? Token::PATH : Token::WORD;
}

void Lexer::count_line()
{
  ++line_;
  ++logged_line_;
}

void Lexer::skip_space()
{
  for (; at_ < text_.size() && is_space(text_[at_]); ++at_)
    if (text_[at_] == '\n')
      count_line();
}

// A comment takes along the part of its word that stands before it: the framework goes on behind the line.
void Lexer::skip_line()
{
  const std::size_t end = text_.find('\n', at_);
  at_ = end == std::string::npos ? text_.size() + 1 : end + 1;
  count_line();
}

// The framework reads nothing from `at` on, where its buffer is full.
void Lexer::cut(std::size_t at)
{
  if (at >= text_.size())
    return;
  errors_.push_back(
      {line_, "a word or string of " + std::to_string(MAX_TOKEN_SIZE) + " bytes; the rest is not read", 0, false});
  text_.resize(at);
}

Token Lexer::make_token(int kind, const std::string& text, std::size_t next_at)
{
  at_ = next_at;
  return {kind, text, line_, logged_line_, 0, "", ""};
}

Token Lexer::make_end()
{
  if (at_ == text_.size())
    ++logged_line_; // the end counts as the end of a line, once
  return make_token(Token::END, "", text_.size() + 1);
}

// The end because of an error: nothing is read after it.
Token Lexer::make_end(const std::string& message)
{
  errors_.push_back({line_, message, logged_line_, false});
  text_.resize(at_);
  return make_token(Token::END, "", at_);
}

Token Lexer::make_character(char c)
{
  if (c == '\0')
    errors_.push_back({line_, "a zero byte; the rest is not read", 0, false});
  return make_token(c, std::string(1, c), at_ + 1);
}

Token Lexer::make_word(std::size_t end)
{
  if (at(end) == '\n')
    ++logged_line_; // the framework meets this end of the line again before the next token
  const std::string word = text_.substr(at_, end - at_);
  return make_token(word_kind(word), word, end);
}

// The text begins behind the first character of the word, whether that is the quote or not, and ends before the last
// quote in front of a character that is not printable.
Token Lexer::make_quoted(char quote, std::size_t from)
{
  std::size_t end = from;
  for (;; ++end) {
    if (end == at_ + MAX_TOKEN_SIZE)
      cut(end);
    if (at(end) < ' ' || at(end) > '~')
      break;
  }

  const bool ends_line = at(end) == '\n' || at(end) == '\r' || end >= text_.size();
  const std::string odd = ends_line ? "" : name_character(text_, end);
  const std::size_t last = text_.rfind(quote, end - 1);
  if (last <= at_)
    return make_end("unable to find the end of the string" +
                    (odd.empty() ? "" : ": " + odd + " in it ends the search") + "; the rest is not read");

  const std::string word = text_.substr(at_, from - 1 - at_);
  Token token = make_token(Token::QUOTED, text_.substr(at_ + 1, last - at_ - 1), last + 1);
  token.quote = quote;
  token.word = word;
  const std::size_t line_end = std::min(text_.find('\n', end), text_.size());
  if (text_.find(quote, end) < line_end)
    token.cut_at = odd;
  return token;
}

// A colon after a single letter belongs to a path.
bool Lexer::is_drive(std::size_t i) const
{
  return i == at_ + 1 && at(i) == ':' && (is_letter(text_[at_]) || text_[at_] == '%');
}

// Read the token that begins here. False when that is a comment, which is skipped.
bool Lexer::scan(Token& token)
{
  for (std::size_t i = at_;; ++i) {
    if (i == at_ + MAX_TOKEN_SIZE)
      cut(i);

    const char c = at(i);
    if (c == '#') {
      skip_line();
      return false;
    }
    if (c == '"' || c == '\'') {
      token = make_quoted(c, i + 1);
      return true;
    }
    if (is_separator(c) && !is_drive(i)) {
      token = i == at_ ? make_character(c) : make_word(i);
      return true;
    }
  }
}

Token Lexer::next()
{
  for (Token token;;) {
    skip_space();
    if (at_ >= text_.size())
      return make_end();
    if (scan(token))
      return token;
  }
}
