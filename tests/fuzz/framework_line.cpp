#include "tests/fuzz/framework_line.h"

#include <cstdlib>
#include <cstring>

static const char* const WHITE_SPACE = " \t\n\v\f\r";

static std::string quote(const std::string& text)
{
  if (text.find(' ') == std::string::npos)
    return text;

  std::string quoted = "\"";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"' && (i == 0 || text[i - 1] != '\\'))
      quoted += '\\';
    quoted += text[i];
  }
  return quoted + '"';
}

std::string join(const Texts& texts)
{
  std::string line;
  for (std::size_t i = 0; i < texts.size(); ++i)
    line += (i == 0 ? "" : " ") + quote(texts[i]);
  return line;
}

// Return where the quote at `at` is closed; npos when it is not.
static std::size_t find_closing(const std::string& line, std::size_t at)
{
  std::size_t end = line.find(line[at], at + 1);
  while (end != std::string::npos && line[end - 1] == '\\')
    end = line.find(line[at], end + 1);
  return end;
}

// A backslash before a quote of the kind that surrounds it goes away.
static std::string unescape(std::string text, char quote)
{
  const std::string escaped{'\\', quote};
  for (std::size_t at = 0; (at = text.find(escaped, at)) != std::string::npos; ++at)
    text.erase(at, 1);
  return text;
}

// Return the word that begins at `at`, and move `at` behind it; to npos when a quote of the word is not closed.
static std::string read_word(const std::string& line, std::size_t& at)
{
  std::string word;
  const std::size_t none = std::string::npos;
  while (at < line.size() && std::strchr(WHITE_SPACE, line[at]) == nullptr) {
    if (line[at] != '"' && line[at] != '\'') {
      word += line[at++];
      continue;
    }
    const std::size_t closing = find_closing(line, at);
    if (closing != none)
      word += unescape(line.substr(at + 1, closing - at - 1), line[at]);
    at = closing == none ? none : closing + 1;
  }
  return word;
}

Words split(const std::string& line)
{
  if (line.compare(0, 1, "#") == 0)
    return {{}, false};

  Words result{{}, true};
  for (std::size_t at = 0; (at = line.find_first_not_of(WHITE_SPACE, at)) != std::string::npos;) {
    const std::string word = read_word(line, at);
    if (at == std::string::npos)
      return {result.words, false};
    result.words.push_back(word);
  }
  return result;
}

std::string name_behind(const std::string& text, std::size_t dollar)
{
  return text.substr(dollar + 1, text.find_first_of("$~!#%^&*()-+=\\|/?,.;:'\"`[]{} \t\n\r", dollar + 1) - dollar - 1);
}

std::string substitute(const std::string& word)
{
  const std::size_t dollar = word.find('$');
  if (dollar == std::string::npos)
    return word;

  const std::string name = name_behind(word, dollar);
  const char* const value = std::getenv(name.c_str());
  return value ? word.substr(0, dollar) + value + word.substr(dollar + 1 + name.size()) : word;
}

bool is_survived(const std::string& text)
{
  std::size_t length = 0; // of the name that is being read
  bool is_name = false;
  for (const char c : text) {
    if (c == '$')
      is_name = true;
    else if (std::string("~!#%^&*()-+=|/?,.;:`[]{} \t\n\r").find(c) != std::string::npos)
      is_name = false;
    else if (is_name && ++length >= 4096)
      return false;
    if (c == '$' || !is_name)
      length = 0;
  }
  return true;
}
