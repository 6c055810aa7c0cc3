#ifndef CHECK_SUBSTITUTION_H
#define CHECK_SUBSTITUTION_H

#include <string>
#include <vector>

/// What goes wrong with the environment variables in `text`, a single word: the framework replaces the first $NAME of
/// it, if that is set, knows no braces, and leaves everything else. Empty when nothing does. Any thread.
std::vector<std::string> check_variables(const std::string& text);

/// What the framework makes of `value` on its way to the configurator, when that is not the value itself; empty
/// otherwise. Variables are not looked at. Any thread.
std::string check_quoting(const std::string& value);

/// What the framework leaves out of the parameters of a service without a word: a comment at the beginning, or a word
/// with a quote that is not closed. Empty when nothing is. Any thread.
std::string check_left_out(const std::string& parameters);

/// The words that the framework makes of the parameters of a service, variables as they are.
std::vector<std::string> split_parameters(const std::string& parameters);

#endif // CHECK_SUBSTITUTION_H
