#include "tests/fuzz/oracle.h"

#include "tests/support/manual_page.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <stdlib.h>

enum { MAX_EXPANDED = 20 }; // what is longer takes time and shows nothing new

std::string input_text(const std::uint8_t* data, std::size_t size)
{
  std::string text;
  int expanded = 0;
  for (std::size_t i = 0; i < size; ++i)
    if (data[i] == '@' && expanded++ < MAX_EXPANDED)
      text.append(1000, 'A');
    else
      text += static_cast<char>(data[i]);
  return text;
}

Texts input_lines(const std::uint8_t* data, std::size_t size)
{
  const std::string text = input_text(data, size);

  Texts lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.emplace_back(text.substr(at, end - at).c_str());
    at = end + 1;
  }
  return lines;
}

static std::string printable(const std::string& text)
{
  std::string out = "\"";
  for (const char c : text)
    if (c >= ' ' && c <= '~')
      out += c;
    else {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
      out += escape;
    }
  return out + '"';
}

void expect_equal(const std::string& what, const std::string& expected, const std::string& actual)
{
  expect_equal(what, Texts{expected}, Texts{actual});
}

void expect_equal(const std::string& what, const Texts& expected, const Texts& actual)
{
  if (expected == actual)
    return;

  for (const std::string& text : expected)
    std::fprintf(stderr, "expected: %s\n", printable(text).c_str());
  for (const std::string& text : actual)
    std::fprintf(stderr, "actual:   %s\n", printable(text).c_str());
  expect(false, what);
}

void expect(bool is_kept, const std::string& what)
{
  if (is_kept)
    return;

  std::fprintf(stderr, "not kept: %s\n", what.c_str());
  std::abort();
}

void set_environment()
{
  clearenv();
  setenv("A", "one", 1);
  setenv("B", "two words", 1);
  setenv("E", "", 1);
  setenv("Q", "it's", 1);
  setenv(std::string(4095, 'A').c_str(), "longest", 1);
  setenv(std::string(4094, 'A').c_str(), "long", 1);
}

// The unit tests look each record up in the manual page. An input is allowed to make the framework log anything.
void expect_in_manual(const Record&) {}
