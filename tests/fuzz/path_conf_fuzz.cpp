// This target holds Path_Conf against its rules. The lines of the input are the prefix, the sub-directory, the base
// name, the text to append, and the name and the value for fix; a line that is missing is a null pointer, or an empty
// text for the last two. Directories are created for a prefix that begins with "made/" and does not lead out of there.

#include "scrt/path_conf.h"
#include "tests/fuzz/framework_line.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

#include <ace/Log_Priority.h>

#include <filesystem>

#include <unistd.h>

namespace
{
struct Input
{
  explicit Input(const Texts& lines) : lines(lines) {}

  const char* operator[](std::size_t i) const { return i < lines.size() ? lines[i].c_str() : nullptr; }
  std::string text(std::size_t i) const { return i < lines.size() ? lines[i] : ""; }

  const Texts& lines;
};

enum { PREFIX, SUB, BASENAME, APPENDED, NAME, VALUE };
enum { MODE = 0700, LONGEST_MADE = 300 };

// The framework looks at the first dollar sign only.
bool is_expanded(const std::string& text)
{
  const std::size_t dollar = text.find('$');
  return dollar == std::string::npos || name_behind(text, dollar).size() < 4096;
}

std::string component(const std::string& text)
{
  return text.empty() ? "" : '/' + text;
}

std::string replaced(const std::string& text, const std::string& name, const std::string& value)
{
  if (name.empty())
    return text;

  std::string result;
  std::size_t at = 0;
  for (std::size_t found = 0; (found = text.find(name, at)) != std::string::npos; at = found + name.size())
    result += text.substr(at, found - at) + value;
  return result + text.substr(at);
}

std::string work_out(const std::string& prefix, const std::string& sub, const std::string& basename)
{
  const std::string joined = prefix + component(sub);
  return prefix.empty() || !is_expanded(joined) ? "" : substitute(joined) + component(basename);
}

// Return the priorities of the records, in order.
std::string priorities(const Log_Capture& log)
{
  std::string text;
  for (const Record& record : log.records())
    text += std::to_string(record.priority) + ' ';
  return text;
}

void check_records(const Log_Capture& log, const std::string& prefix, const std::string& joined)
{
  const int expected = prefix.empty() ? LM_EMERGENCY : LM_ERROR;
  const bool is_silent = !prefix.empty() && is_expanded(joined);
  expect_equal("records", is_silent ? "" : std::to_string(expected) + ' ', priorities(log));
}

void check_changes(Path_Conf conf, const Input& input)
{
  std::string expected = conf.str() + component(input.text(APPENDED));
  expect_equal("append", expected, conf.append(input[APPENDED]).str());

  expected = replaced(expected, input.text(NAME), input.text(VALUE));
  conf.fix(input.text(NAME).c_str(), input.text(VALUE).c_str());
  expect_equal("fix", expected, conf.str());
  expect_equal("moved out", expected, std::move(conf).str());
}

void check_creation(const Input& input, const std::string& expected)
{
  const std::string directory = substitute(input.text(PREFIX) + component(input.text(SUB)));
  const bool is_inside = directory.compare(0, 5, "made/") == 0 && directory.find("..") == std::string::npos;
  if (!is_inside || directory.size() > LONGEST_MADE)
    return;

  {
    const Log_Capture log;
    const Path_Conf conf(input[PREFIX], input[SUB], true, input[BASENAME], MODE);
    expect_equal("path of a created directory", expected, conf.str());
    std::error_code error; // of a name that is too long
    expect(std::filesystem::is_directory(directory, error) == log.records().empty(), "a directory or a record");
  }
  std::filesystem::remove_all("made");
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  static const Temp_Dir dir;
  set_environment();
  return chdir(dir.path().c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  const Texts lines = input_lines(data, size);
  const Input input(lines);
  const std::string prefix = input.text(PREFIX);
  {
    const Log_Capture log;
    const Path_Conf conf(input[PREFIX], false, input[BASENAME], MODE);
    expect_equal("path", work_out(prefix, "", input.text(BASENAME)), conf.str());
    check_records(log, prefix, prefix);
  }
  const std::string expected = work_out(prefix, input.text(SUB), input.text(BASENAME));
  {
    const Log_Capture log;
    const Path_Conf conf(input[PREFIX], input[SUB], false, input[BASENAME], MODE);
    expect_equal("path with a sub-directory", expected, conf.str());
    check_records(log, prefix, prefix + component(input.text(SUB)));
    check_changes(conf, input);
  }
  if (!expected.empty())
    check_creation(input, expected);
  return 0;
}
