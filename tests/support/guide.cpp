#include "tests/support/guide.h"

#include "tests/support/command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

static const std::string MARK = "==== end of block ====";

std::vector<Block> blocks_of(const std::string& guide)
{
  std::vector<Block> blocks;
  bool inside = false;
  for (const std::string& line : lines_of(guide)) {
    if (line.compare(0, 3, "```") == 0) {
      if (!inside) {
        std::istringstream words(line.substr(3));
        blocks.emplace_back();
        words >> blocks.back().kind >> blocks.back().path;
      }
      inside = !inside;
    } else if (inside)
      blocks.back().text += line + '\n';
  }
  EXPECT_FALSE(inside);
  return blocks;
}

std::string script_of(const std::vector<Block>& blocks, const std::string& kind)
{
  std::string script = "trap 'for job in $(jobs -p); do kill -KILL $job 2>/dev/null; done' EXIT\n";
  for (const Block& block : blocks) {
    if (!block.path.empty())
      script += "mkdir -p \"$(dirname " + block.path + ")\"\ncat >" + block.path + " <<'END OF FILE'\n" + block.text +
                "END OF FILE\n";
    else if (block.kind == kind)
      script += block.text + "echo '" + MARK + "'\n";
  }
  return script;
}

static std::string without_numbers(const std::string& text)
{
  return std::regex_replace(text, std::regex("[0-9]+"), "#");
}

// The three dots that a record may end in are any text too.
static bool has_part(const std::string& line, const std::string& part)
{
  static const std::string ANY = "...";
  std::size_t at = 0;
  for (std::size_t begin = 0; begin <= part.size();) {
    const std::size_t end = std::min(part.find(ANY, begin), part.size());
    const std::string piece = part.substr(begin, end - begin);
    at = line.find(piece, at);
    if (at == std::string::npos)
      return false;
    at += piece.size();
    begin = end + ANY.size();
  }
  return true;
}

void expect_lines(const std::string& expected, const std::string& output)
{
  const std::vector<std::string> lines = lines_of(without_numbers(output));
  auto at = lines.begin();
  for (const std::string& line : lines_of(without_numbers(expected))) {
    while (at != lines.end() && !has_part(*at, line))
      ++at;
    if (at == lines.end())
      ADD_FAILURE() << "expected: " << line << "\nin the output:\n" << output;
    else
      ++at;
  }
}

unsigned expect_promised_output(const std::vector<Block>& blocks, const std::string& kind, const std::string& output)
{
  unsigned followed = 0;
  std::size_t begin = 0;
  std::string before; // the kind of the last commands
  std::string last;   // their output, if they are of the kind asked for
  for (const Block& block : blocks) {
    if (!block.path.empty())
      continue;
    if (block.kind == kind) {
      const std::size_t end = output.find(MARK, begin);
      if (end == std::string::npos) {
        ADD_FAILURE() << "no end of\n" << block.text << "in the output:\n" << output;
        return followed;
      }
      last = output.substr(begin, end - begin);
      begin = end + MARK.size();
      ++followed;
    }
    if (block.kind != "text")
      before = block.kind;
    else if (before == kind)
      expect_lines(block.text, last);
  }
  return followed;
}
