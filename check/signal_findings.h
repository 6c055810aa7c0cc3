#ifndef CHECK_SIGNAL_FINDINGS_H
#define CHECK_SIGNAL_FINDINGS_H

#include "check/finding.h"

/// Add to `findings` the signals that the service configurator is to reload at and that cannot be caught. `argv` holds
/// the `argc` arguments that the host would open the configurator with, and stays as it is.
void check_signals(int argc, char** argv, Findings& findings);

#endif // CHECK_SIGNAL_FINDINGS_H
