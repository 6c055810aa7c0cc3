#ifndef TESTS_SUPPORT_MANUAL_PAGE_H
#define TESTS_SUPPORT_MANUAL_PAGE_H

#include "tests/support/log_capture.h"

#include <string>
#include <vector>

/// The lines of the section `name` of starter(8).
std::vector<std::string> manual_section(const std::string& name);

/// The lines of that section that begin with `start`, without this beginning.
std::vector<std::string> manual_items(const std::string& name, const std::string& start);

/// A record that starter(8) lists: the first line of its text, with a star for each part that varies.
struct Manual_Record
{
  std::string priority; ///< such as "error"
  std::string text;
};

const std::vector<Manual_Record>& manual_records();

/// The test fails for a record of the program or its library that starter(8) does not list with this priority.
void expect_in_manual(const Record& record);

#endif // TESTS_SUPPORT_MANUAL_PAGE_H
