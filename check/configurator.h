#ifndef CHECK_CONFIGURATOR_H
#define CHECK_CONFIGURATOR_H

#include <string>
#include <utility>
#include <vector>

/// Something that the service configurator processes: a file or a directive.
struct Source
{
  bool is_file;
  std::string text;     ///< the path, or the directive
  bool is_default_file; ///< the file that is processed when none is asked for
};

/// The letter of an option of the configurator and its value, which is empty if it has none.
using Configurator_Option = std::pair<char, std::string>;

// `argv` holds the `argc` arguments that the host would open the configurator with, and stays as it is. The functions
// log nothing. Main thread, before any other exists.

/// The files and directives that the configurator finds in its arguments, in the order in which it processes them.
std::vector<Source> configurator_sources(int argc, char** argv);

// The configurator reads its arguments twice, each time for a part of the options. Each reading does not know the
// options of the other one: it takes their values for words or for options, and a word ends it if POSIXLY_CORRECT is
// set.

/// The options that the first reading takes: those of the process, "b", "s" and "p".
std::vector<Configurator_Option> taken_process_options(int argc, char** argv);

/// The options that the second reading takes: those of the services, "d", "f", "k", "n", "y" and "S".
std::vector<Configurator_Option> taken_service_options(int argc, char** argv);

/// Whether the configurator itself would go to the background.
bool goes_to_background(int argc, char** argv);

#endif // CHECK_CONFIGURATOR_H
