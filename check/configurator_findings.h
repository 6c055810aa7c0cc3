#ifndef CHECK_CONFIGURATOR_FINDINGS_H
#define CHECK_CONFIGURATOR_FINDINGS_H

#include "check/finding.h"
#include "check/meant_options.h"

#include <vector>

/// Add to `findings` the options that the service configurator takes otherwise than `meant`: those whose values are
/// altered on the way, those that do not get to it, those that have no effect, and those that it takes out of a value.
/// `argv` holds the `argc` arguments that the host would open the configurator with, and stays as it is.
void check_configurator_options(const std::vector<Meant_Option>& meant, int argc, char** argv, Findings& findings);

#endif // CHECK_CONFIGURATOR_FINDINGS_H
