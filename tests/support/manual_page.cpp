#include "tests/support/manual_page.h"

#include "tests/support/command.h"
#include "tests/support/temp_dir.h"

#include <ace/Log_Record.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>

#include <fnmatch.h>

std::vector<std::string> manual_section(const std::string& name)
{
  static const std::vector<std::string> page = lines_of(read_file(TESTS_MANUAL_PAGE));

  std::vector<std::string> lines;
  bool inside = false;
  for (const std::string& line : page)
    if (line.compare(0, 4, ".Sh ") == 0)
      inside = line == ".Sh " + name;
    else if (inside)
      lines.push_back(line);
  EXPECT_FALSE(lines.empty()) << name;
  return lines;
}

std::vector<std::string> manual_items(const std::string& name, const std::string& start)
{
  std::vector<std::string> found;
  for (const std::string& line : manual_section(name))
    if (line.compare(0, start.size(), start) == 0)
      found.push_back(line.substr(start.size()));
  return found;
}

static Manual_Record parse_record(const std::string& item)
{
  std::smatch parts;
  EXPECT_TRUE(std::regex_match(item, parts, std::regex(R"re("(.*)" Pq (\w+))re"))) << item;
  std::string text = std::regex_replace(parts[1].str(), std::regex(R"(\\\(dq)"), "\"");
  text = std::regex_replace(text, std::regex(R"(\\&)"), "");
  return {parts[2], std::regex_replace(text, std::regex("<[a-z]+>"), "*")};
}

const std::vector<Manual_Record>& manual_records()
{
  static const std::vector<Manual_Record> records = [] {
    std::vector<Manual_Record> parsed;
    for (const std::string& item : manual_items("DIAGNOSTICS", ".It Sy "))
      parsed.push_back(parse_record(item));
    return parsed;
  }();
  return records;
}

// Whether `line` is `text`, in which a star stands for anything.
static bool is_match(const std::string& text, const std::string& line)
{
  const std::string pattern = std::regex_replace(text, std::regex(R"([\[\]?\\])"), "\\$&");
  return fnmatch(pattern.c_str(), line.c_str(), 0) == 0;
}

void expect_in_manual(const Record& record)
{
  static const std::map<int, std::string> priorities{{LM_DEBUG, "debug"},     {LM_INFO, "info"},
                                                     {LM_WARNING, "warning"}, {LM_ERROR, "error"},
                                                     {LM_ALERT, "alert"},     {LM_EMERGENCY, "emergency"}};
  if (record.file.compare(0, 8, "starter/") != 0 && record.file.compare(0, 5, "scrt/") != 0)
    return;
  const std::string line = record.text.substr(0, record.text.find('\n'));
  if (line.size() > ACE_Log_Record::MAXLOGMSGLEN / 2)
    return; // the framework has cut off the end of the line

  const std::vector<Manual_Record>& records = manual_records();
  // A back trace may follow the first line, or a part that varies may itself contain the end of a line.
  const bool is_listed = priorities.count(record.priority) != 0 &&
                         std::any_of(records.begin(), records.end(), [&](const Manual_Record& listed) {
                           return listed.priority == priorities.at(record.priority) &&
                                  (is_match(listed.text, line) || is_match(listed.text, without_newline(record.text)));
                         });
  EXPECT_TRUE(is_listed) << "starter(8) does not list this record with its priority: " << record;
}
