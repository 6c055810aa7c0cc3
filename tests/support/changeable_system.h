#ifndef TESTS_SUPPORT_CHANGEABLE_SYSTEM_H
#define TESTS_SUPPORT_CHANGEABLE_SYSTEM_H

#include "tests/support/systemd_machine.h"

#include <string>

/// Provide the usual targets, the journal and the system bus as units of `machine`; before boot().
void add_system_units(const Systemd_Machine& machine);

/// Let the machine, which is booted, change the system of this one in /etc, /root, /tmp, /usr and /var, and forget all
/// changes at its end. Units that a package brings go where systemd looks for them. Where there is a directory `base`
/// with directories of these names, their files are there as if the machine had changed them already. The test fails if
/// that fails.
void make_changeable(const Systemd_Machine& machine, const std::string& base = "");

#endif // TESTS_SUPPORT_CHANGEABLE_SYSTEM_H
