#ifndef CHECK_COMMAND_LINE_READER_H
#define CHECK_COMMAND_LINE_READER_H

#include <cstddef>
#include <string>
#include <vector>

/// The role that one of the two parsers of the command line gives to an argument: a word that is no option, an option
/// that it does not know, an option, the value of an option, the "--" that ends the options, or an argument behind it.
enum class Role { WORD, UNKNOWN, OPTION, VALUE, END, BEHIND };

/// An option where it is given.
struct Occurrence
{
  std::string name;  ///< a letter or a long name
  std::size_t at;    ///< the position of the option in the command line
  const char* value; ///< points into the command line; null if there is none
};

/// One parser's reading of the command line.
struct Reading
{
  std::vector<Role> roles;         ///< by position
  std::vector<std::string> unread; ///< by position: the letters in the argument that mean nothing
  std::vector<Occurrence> options; ///< in order
};

// `argv` holds `argc` arguments, of which the first one is the name of the program, and a null pointer. It stays as it
// is, and has to outlive the readings.

/// The command line as the host reads it for its own options.
Reading read_own_options(int argc, char** argv);

/// The command line as the host reads it for the service configurator.
Reading read_configurator_options(int argc, char** argv);

/// Whether the last argument is an option that lacks its value: with a value behind it, it would be known.
bool lacks_value(int argc, char** argv);

#endif // CHECK_COMMAND_LINE_READER_H
