#ifndef CHECK_COMMAND_LINE_H
#define CHECK_COMMAND_LINE_H

#include "check/finding.h"

/// Add to `findings` what the host would refuse, ignore or read otherwise than it looks in its own command line:
/// options, words, the values of its own options, and the values that it hands to the service configurator. `argv[0]`
/// is the name of the program; `argv` stays as it is. What the configurator's files and directives hold is not looked
/// at.
void check_command_line(int argc, char** argv, Findings& findings);

#endif // CHECK_COMMAND_LINE_H
