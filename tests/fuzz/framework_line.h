#ifndef TESTS_FUZZ_FRAMEWORK_LINE_H
#define TESTS_FUZZ_FRAMEWORK_LINE_H

// These functions make the framework's argument vector once more, as its rules read: the texts are joined into one
// line, the line is cut into words again, and the first $NAME of every word is replaced.

#include "tests/fuzz/oracle.h"

/// Return the line that is made of `texts`. A text that holds a blank is quoted.
std::string join(const Texts& texts);

struct Words
{
  Texts words;
  bool is_whole; ///< whether no word has been left out
};

/// Return the words of `line`. A line that begins with "#" has none, and a word with a quote that is not closed, which
/// is the last one, is left out.
Words split(const std::string& line);

/// Return `word` with its first $NAME replaced by the value, if that variable is set.
std::string substitute(const std::string& word);

/// Return the name that follows the "$" at `dollar`; an empty text when there is none.
std::string name_behind(const std::string& text, std::size_t dollar);

/// Return whether the framework survives the names in `text`. It takes quotes, and backslashes with them, out of the
/// text first.
bool is_survived(const std::string& text);

#endif // TESTS_FUZZ_FRAMEWORK_LINE_H
