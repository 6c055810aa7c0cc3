#ifndef CHECK_SUBSTITUTION_H
#define CHECK_SUBSTITUTION_H

#include <string>
#include <vector>

/// The problems of the environment variables in `text`, a single word, one an element. The framework replaces the first
/// $NAME of a word if that variable is set, knows no braces, and leaves everything else. Any thread, as long as nobody
/// changes the environment.
std::vector<std::string> check_variables(const std::string& text);

/// Returns the text that the framework makes of a word when it replaces the variable in it. A word that it would not
/// survive stays as it is. Any thread, as long as nobody changes the environment.
std::string substitute_variable(const std::string& word);

/// Tells what the framework silently leaves out of the parameters of a service: all of them, if they begin as a comment
/// does, or a word with a quote that is not closed. Empty when it leaves out nothing. Any thread.
std::string check_left_out(const std::string& parameters);

/// The words that the framework makes of the parameters of a service. Variables stay as they are. Any thread.
std::vector<std::string> split_parameters(const std::string& parameters);

#endif // CHECK_SUBSTITUTION_H
