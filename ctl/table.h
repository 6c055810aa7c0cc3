#ifndef CTL_TABLE_H
#define CTL_TABLE_H

#include <set>
#include <string>
#include <vector>

/// The cells of a table, by rows. A row may have fewer cells than others.
using Rows = std::vector<std::vector<std::string>>;

/// The rows as lines, with two blanks between columns that are as wide as their widest cell. The columns in `right` are
/// aligned to the right, the first one being 0. No line ends in a blank. Cells hold any bytes: those that a terminal
/// would take for a command, or that are no UTF-8, are written as escapes such as \x1b. Any thread.
std::string format_table(Rows rows, const std::set<std::size_t>& right = {});

/// The time in its two largest units, as people say it: "2 hours 5 minutes", "1 day", "0 seconds". Any thread.
std::string format_duration(long long seconds);

#endif // CTL_TABLE_H
