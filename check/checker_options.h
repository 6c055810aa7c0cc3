#ifndef CHECK_CHECKER_OPTIONS_H
#define CHECK_CHECKER_OPTIONS_H

#include <string>

// The options of the checker itself, which stand before those of the host.
constexpr char ALLOW_WARNINGS_OPTION[] = "--allow-warnings";
constexpr char COMPARE_FILES_OPTION[] = "--compare-files";
constexpr char JSON_OPTION[] = "--json";
constexpr char QUIET_OPTION[] = "--quiet";
constexpr char SHORT_QUIET_OPTION[] = "-q";
constexpr char SAVE_FILES_OPTION[] = "--save-files";
constexpr char HELP_OPTION[] = "--help";
constexpr char VERSION_OPTION[] = "--version";

inline bool is_checker_option(const std::string& argument)
{
  for (const char* const option : {ALLOW_WARNINGS_OPTION, COMPARE_FILES_OPTION, JSON_OPTION, QUIET_OPTION,
                                   SHORT_QUIET_OPTION, SAVE_FILES_OPTION, HELP_OPTION, VERSION_OPTION})
    if (argument == option)
      return true;
  return false;
}

#endif // CHECK_CHECKER_OPTIONS_H
