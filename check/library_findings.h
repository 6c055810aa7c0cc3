#ifndef CHECK_LIBRARY_FINDINGS_H
#define CHECK_LIBRARY_FINDINGS_H

#include "check/finding.h"
#include "check/placed_directive.h"

/// Add to `findings` that the library of a dynamic directive cannot be loaded, that its factory is missing or of the
/// wrong kind, or that it needs a function which no library has. The probes of the directive have been run.
void check_factory(const Placed_Directive& placed, Findings& findings);

#endif // CHECK_LIBRARY_FINDINGS_H
