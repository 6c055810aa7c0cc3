#include "tests/support/journal_json.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{
class Reader
{
public:
  explicit Reader(const std::string& line) : line_(line) {}

  Entry_Fields entry()
  {
    Entry_Fields fields;
    expect('{');
    do {
      const std::string name = text();
      expect(':');
      fields.emplace(name, value());
    } while (is_next(','));
    expect('}');
    EXPECT_EQ(line_.size(), at_) << line_;
    return fields;
  }

private:
  char next() { return at_ < line_.size() ? line_[at_++] : '\0'; }

  void expect(char c)
  {
    if (next() != c) {
      ADD_FAILURE() << "no " << c << " before " << at_ << ": " << line_;
      at_ = line_.size();
    }
  }

  bool is_next(char c)
  {
    if (at_ >= line_.size() || line_[at_] != c)
      return false;
    ++at_;
    return true;
  }

  // The journal writes UTF-8 as it is, and escapes control characters only.
  char escaped()
  {
    switch (const char c = next()) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'r':
      return '\r';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'u': {
      const unsigned long code = std::stoul(line_.substr(at_, 4), nullptr, 16);
      EXPECT_GT(0x80u, code) << line_;
      at_ += 4;
      return static_cast<char>(code);
    }
    default:
      return c;
    }
  }

  std::string text()
  {
    std::string result;
    expect('"');
    while (at_ < line_.size() && line_[at_] != '"') {
      const char c = next();
      result += c == '\\' ? escaped() : c;
    }
    expect('"');
    return result;
  }

  std::string value()
  {
    if (at_ < line_.size() && line_[at_] == '"')
      return text();

    expect('[');
    if (at_ < line_.size() && (line_[at_] == '"' || line_[at_] == '['))
      return values();
    std::string bytes;
    do {
      char* end = nullptr;
      bytes += static_cast<char>(std::strtoul(line_.c_str() + at_, &end, 10));
      at_ = static_cast<std::size_t>(end - line_.c_str());
    } while (is_next(','));
    expect(']');
    return bytes;
  }

  std::string values()
  {
    const std::string first = value();
    while (is_next(','))
      (void)value();
    expect(']');
    return first;
  }

  const std::string& line_;
  std::size_t at_ = 0;
};
} // namespace

Entry_Fields parse_json_entry(const std::string& line)
{
  return Reader(line).entry();
}
