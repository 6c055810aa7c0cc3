#ifndef CHECK_SVC_CONF_LEXER_H
#define CHECK_SVC_CONF_LEXER_H

#include "check/svc_conf.h"

#include <cstddef>
#include <string>
#include <vector>

/// A token of a configuration file.
struct Token
{
  enum Kind {
    END = 0,
    WORD = 256, ///< below it, a kind is the character that the token consists of
    PATH,
    QUOTED,
    DYNAMIC,
    STATIC,
    SUSPEND,
    RESUME,
    REMOVE,
    STREAM,
    MODULE_TYPE,
    SERVICE_TYPE,
    STREAM_TYPE,
    ACTIVE,
    INACTIVE
  };

  int kind = END;
  std::string text;    ///< without the quotes, if it is QUOTED
  int line = 1;        ///< the line in which the token begins
  int logged_line = 1; ///< the framework's count by the end of the token: one too much for each word that ends a line
  char quote = 0;      ///< of the kind QUOTED: the quote around it
  std::string word;    ///< of the kind QUOTED: the characters before the first quote
  std::string cut_at;  ///< of the kind QUOTED: the name of the character at which the search for its end has stopped
};

/// Cuts a configuration file into the tokens that the framework's lexer finds in it, its peculiarities included:
/// parse_svc_conf() lists them. Logs nothing.
class Lexer
{
public:
  /// Errors are added to `errors`, which has to outlive the lexer.
  Lexer(const std::string& text, std::vector<Syntax_Error>& errors) : text_(text), errors_(errors) {}

  /// The next token; after the last one, always END.
  Token next();

private:
  char at(std::size_t i) const { return i < text_.size() ? text_[i] : '\n'; } // the end of the text ends a line
  bool is_drive(std::size_t i) const;
  void count_line();
  void skip_space();
  void skip_line();
  void cut(std::size_t at);
  bool scan(Token& token);
  Token make_token(int kind, const std::string& text, std::size_t next_at);
  Token make_end();
  Token make_end(const std::string& message);
  Token make_word(std::size_t end);
  Token make_quoted(char quote, std::size_t from);
  Token make_character(char c);

  std::string text_;
  std::vector<Syntax_Error>& errors_;
  std::size_t at_ = 0; // the position at which the next token begins
  int line_ = 1;
  int logged_line_ = 1;
};

#endif // CHECK_SVC_CONF_LEXER_H
