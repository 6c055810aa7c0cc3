#ifndef CHECK_CONFIGURATOR_H
#define CHECK_CONFIGURATOR_H

#include "check/finding.h"

#include <string>
#include <vector>

/// What the service configurator would process.
struct Source
{
  bool is_file;
  std::string text;     ///< the path, or the directive
  bool is_default_file; ///< and not asked for
};

// `argv` is what the host would open the configurator with, and stays as it is.

/// The files and directives that the configurator finds in its arguments, in its order.
std::vector<Source> configurator_sources(int argc, char** argv);

/// Whether the configurator itself would go to the background.
bool goes_to_background(int argc, char** argv);

/// Add to `findings` what the configurator would read otherwise than it is meant, and a signal that it cannot take.
void check_configurator_options(int argc, char** argv, Findings& findings);

#endif // CHECK_CONFIGURATOR_H
