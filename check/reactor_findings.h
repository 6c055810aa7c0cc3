#ifndef CHECK_REACTOR_FINDINGS_H
#define CHECK_REACTOR_FINDINGS_H

#include "check/finding.h"

/// Add to `findings` that the reactor which the command line asks for cannot work within the limit of descriptors. A
/// process of its own tries the reactor, with the descriptors of this process. `argv` holds the `argc` arguments of the
/// host and stays as it is. False when there is no process to try the reactor in. The calling process must have no
/// other thread. Logs nothing.
bool check_reactor_limit(int argc, char** argv, Findings& findings);

#endif // CHECK_REACTOR_FINDINGS_H
