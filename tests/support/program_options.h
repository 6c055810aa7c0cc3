#ifndef TESTS_SUPPORT_PROGRAM_OPTIONS_H
#define TESTS_SUPPORT_PROGRAM_OPTIONS_H

#include <set>
#include <string>

/// The options that the program under test registers with its parsers as it starts, as they are typed: "-d" and
/// "--background", or "-f=" and "--user=" for options that take an argument.
std::set<std::string> program_options();

#endif // TESTS_SUPPORT_PROGRAM_OPTIONS_H
