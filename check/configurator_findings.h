#ifndef CHECK_CONFIGURATOR_FINDINGS_H
#define CHECK_CONFIGURATOR_FINDINGS_H

#include "check/finding.h"

/// Add to `findings` the options that the service configurator would read otherwise than they are meant: those that it
/// takes out of a value, and those that do not get to it. `argv` holds the `argc` arguments that the host would open
/// the configurator with, and stays as it is.
void check_configurator_options(int argc, char** argv, Findings& findings);

#endif // CHECK_CONFIGURATOR_FINDINGS_H
