#include "ctl/table.h"

#include "check/characters.h"

#include <algorithm>
#include <cstddef>

// The number of characters, which UTF-8 begins with a byte of another kind than those that go on.
static std::size_t width_of(const std::string& text)
{
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

static std::vector<std::size_t> widths_of(const Rows& rows)
{
  std::vector<std::size_t> widths;
  for (const auto& row : rows)
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths.resize(std::max(widths.size(), i + 1));
      widths[i] = std::max(widths[i], width_of(row[i]));
    }
  return widths;
}

static std::string without_blanks_at_end(const std::string& line)
{
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string format_table(Rows rows, const std::set<std::size_t>& right)
{
  for (auto& row : rows)
    for (std::string& cell : row)
      cell = escape_controls(cell);
  const std::vector<std::size_t> widths = widths_of(rows);

  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - width_of(row[i]), ' ');
      line += i > 0 ? "  " : "";
      line += right.count(i) != 0 ? padding + row[i] : row[i] + padding;
    }
    text += without_blanks_at_end(line) + '\n';
  }
  return text;
}

static std::string format_unit(long long number, const char* unit)
{
  return std::to_string(number) + ' ' + unit + (number == 1 ? "" : "s");
}

std::string format_duration(long long seconds)
{
  struct Unit
  {
    const char* name;
    long long seconds;
  };
  static constexpr Unit UNITS[] = {{"day", 86400}, {"hour", 3600}, {"minute", 60}, {"second", 1}};

  for (const Unit* unit = UNITS; unit->seconds > 1; ++unit)
    if (seconds >= unit->seconds) {
      const long long smaller = seconds % unit->seconds / unit[1].seconds;
      return format_unit(seconds / unit->seconds, unit->name) +
             (smaller == 0 ? "" : ' ' + format_unit(smaller, unit[1].name));
    }
  return format_unit(seconds, "second");
}
