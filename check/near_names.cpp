#include "check/near_names.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

static const char EXTENSION[] = "conf";

static bool is_letter_or_space(unsigned char c)
{
  return std::isalpha(c) || std::isspace(c);
}

// Whether one letter is left out, added, wrong, or has changed places with its neighbour.
static bool is_one_slip_away(std::string text, std::string word)
{
  if (text.size() > word.size())
    std::swap(text, word);
  const auto differ = std::mismatch(text.begin(), text.end(), word.begin());
  const std::size_t at = static_cast<std::size_t>(differ.first - text.begin());
  if (text.size() + 1 == word.size())
    return text.compare(at, std::string::npos, word, at + 1, std::string::npos) == 0;
  if (text.size() != word.size() || at == text.size())
    return false;

  std::string swapped = text;
  if (at + 1 < text.size())
    std::swap(swapped[at], swapped[at + 1]);
  return swapped == word || text.compare(at + 1, std::string::npos, word, at + 1, std::string::npos) == 0;
}

bool is_almost_conf(const std::string& name)
{
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos)
    return false;

  std::string extension = name.substr(dot + 1);
  if (extension == EXTENSION || !std::all_of(extension.begin(), extension.end(), is_letter_or_space))
    return false;
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == EXTENSION || extension == "config" || extension == "cfg" ||
         is_one_slip_away(extension, EXTENSION);
}
