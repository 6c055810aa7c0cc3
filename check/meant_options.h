#ifndef CHECK_MEANT_OPTIONS_H
#define CHECK_MEANT_OPTIONS_H

#include "check/configurator.h"

#include <cstddef>
#include <string>
#include <vector>

/// An option for the configurator as the command line means it.
struct Meant_Option
{
  char letter;
  std::string value; ///< as it is given; empty if there is none
  bool has_value;    ///< the letter takes a value
  bool is_found;     ///< -f and the path of a file that has been found in a directory
  bool is_passed;    ///< false: the host drops the option, as the framework would not survive its value
};

// `argv` holds the `argc` arguments of the host, of which the first one is the name of the program, and stays as it is.

/// The options for the configurator that the host finds in its command line, in their order. A directory stands for the
/// files that the host passes on in its place. Logs nothing.
std::vector<Meant_Option> meant_options(int argc, char** argv);

/// The option as the configurator has to take it. The variable in a given value is replaced, a path that has been found
/// stays as it is.
Configurator_Option expected_option(const Meant_Option& option);

/// The words of the argument vector that the framework makes of the first `count` of the options. It joins them to one
/// line and splits that. Variables stay as they are.
std::vector<std::string> framework_words(const std::vector<Meant_Option>& options, std::size_t count);

#endif // CHECK_MEANT_OPTIONS_H
