#ifndef TESTS_SUPPORT_COMPANIONS_H
#define TESTS_SUPPORT_COMPANIONS_H

#include <string>
#include <vector>

/// The names of all companions, such as "journal".
std::vector<std::string> companion_names();

/// The directive of the installed configuration file of the companion `name`, with the library that was built here,
/// with any free port in place of one that it names, and with `params` in place of the arguments unless it is null.
std::string companion_directive(const std::string& name, const char* params = nullptr);

#endif // TESTS_SUPPORT_COMPANIONS_H
