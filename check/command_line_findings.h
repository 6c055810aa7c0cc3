#ifndef CHECK_COMMAND_LINE_FINDINGS_H
#define CHECK_COMMAND_LINE_FINDINGS_H

#include "check/finding.h"

/// Add to `findings` what the host would refuse, ignore or read otherwise than it looks in its own command line:
/// options, words and the values of its own options. The options of the service configurator are not looked at.
/// `argv[0]` is the name of the program, and a null pointer follows the last argument; `argv` stays as it is.
void check_command_line(int argc, char** argv, Findings& findings);

#endif // CHECK_COMMAND_LINE_FINDINGS_H
