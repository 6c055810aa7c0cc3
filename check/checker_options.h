#ifndef CHECK_CHECKER_OPTIONS_H
#define CHECK_CHECKER_OPTIONS_H

#include <string>

// The options of the checker itself, which stand before those of the host.
constexpr char ALLOW_WARNINGS_OPTION[] = "--allow-warnings";
constexpr char JSON_OPTION[] = "--json";
constexpr char HELP_OPTION[] = "--help";
constexpr char VERSION_OPTION[] = "--version";

inline bool is_checker_option(const std::string& argument)
{
  return argument == ALLOW_WARNINGS_OPTION || argument == JSON_OPTION || argument == HELP_OPTION ||
         argument == VERSION_OPTION;
}

#endif // CHECK_CHECKER_OPTIONS_H
