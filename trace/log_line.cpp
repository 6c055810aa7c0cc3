#include "trace/log_line.h"

#include <algorithm>
#include <charconv>

enum { MAX_LINE = 65536 }; // the framework cuts records at 4 KiB: a line as long as this is something else

static constexpr std::string_view BLANKS = " \t\r\n";

static std::string_view trimmed(std::string_view text)
{
  const std::size_t begin = text.find_first_not_of(BLANKS);
  if (begin == std::string_view::npos)
    return {};
  return text.substr(begin, text.find_last_not_of(BLANKS) - begin + 1);
}

static bool ends_with(std::string_view text, std::string_view end)
{
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

static bool contains(std::string_view text, std::string_view part)
{
  return text.find(part) != std::string_view::npos;
}

// Takes a hexadecimal number with its 0x from the front of the text.
static bool take_number(std::string_view& text, std::uint64_t& number)
{
  if (text.substr(0, 2) != "0x")
    return false;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data() + 2, end, number, 16);
  if (error != std::errc())
    return false;

  text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  return true;
}

// ---- What comes before the text

// The place after the number of a process and its colon, "[4711]: ", or 0.
static std::size_t end_of_process(std::string_view line)
{
  for (std::size_t at = line.find("]: "); at != std::string_view::npos; at = line.find("]: ", at + 1)) {
    const std::size_t digits = line.find_last_not_of("0123456789", at - 1) + 1;
    if (at > digits && digits > 0 && line[digits - 1] == '[')
      return at + 3;
  }
  return 0;
}

Log_Line split_line(std::string_view line)
{
  line = line.substr(0, MAX_LINE);
  const std::size_t begin = end_of_process(line);
  if (begin == 0)
    return {{}, trimmed(line)};

  const std::string_view prefix = line.substr(0, begin - 2);
  return {prefix.substr(prefix.find_last_of(BLANKS) + 1), trimmed(line.substr(begin))};
}

// ---- Frames

// The name of the module, without a time in front of it.
static std::string_view module_name(std::string_view text)
{
  const std::size_t path = text.find(" /");
  return text.empty() || text[0] == '/' || path == std::string_view::npos ? text : text.substr(path + 1);
}

// "symbol+0x1f", "symbol-0x1f", "+0x1f", or nothing.
static bool parse_place(std::string_view place, Frame_Line& frame)
{
  if (place.empty())
    return true;
  const std::size_t sign = place.find_last_of("+-");
  if (sign == std::string_view::npos)
    return false;

  std::string_view number = place.substr(sign + 1);
  std::uint64_t offset;
  if (!take_number(number, offset) || !number.empty())
    return false;
  frame.symbol = place.substr(0, sign);
  frame.offset = static_cast<std::int64_t>(place[sign] == '-' ? 0 - offset : offset);
  frame.has_offset = true;
  return true;
}

std::optional<Frame_Line> parse_frame(std::string_view text)
{
  const std::size_t bracket = text.rfind('[');
  if (!ends_with(text, "]") || bracket == std::string_view::npos)
    return {};

  Frame_Line frame;
  std::string_view address = text.substr(bracket + 1);
  if (address == "(nil)]")
    address = "]";
  else if (!take_number(address, frame.address))
    return {};
  const std::string_view place = trimmed(text.substr(0, bracket));
  if (address != "]" || place.empty())
    return address == "]" ? std::optional(frame) : std::nullopt;

  const std::size_t paren = place.rfind('(');
  if (!ends_with(place, ")") || paren == std::string_view::npos || paren == 0)
    return {};
  frame.module = module_name(place.substr(0, paren));
  if (!parse_place(place.substr(paren + 1, place.size() - paren - 2), frame))
    return {};
  return frame;
}

bool is_cut_frame(std::string_view text)
{
  return !text.empty() && text[0] == '/';
}

// ---- Records

static bool is_build_id(std::string_view text)
{
  return !text.empty() && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

// A program or library whose file was replaced or removed while it ran has this behind its name.
static std::string_view without_deletion(std::string_view path)
{
  static constexpr std::string_view DELETED = " (deleted)";
  return ends_with(path, DELETED) ? path.substr(0, path.size() - DELETED.size()) : path;
}

std::optional<Module> parse_module(std::string_view text)
{
  static constexpr std::string_view WORDS[] = {"Module /", ", build-id ", ", at "};
  const std::size_t begin = text.find(WORDS[0]);
  const std::size_t id = text.rfind(WORDS[1]);
  const std::size_t at = text.rfind(WORDS[2]);
  if (begin == std::string_view::npos || id == std::string_view::npos || at == std::string_view::npos || id < begin ||
      at < id)
    return {};

  Module module;
  std::string_view range = text.substr(at + WORDS[2].size());
  if (!take_number(range, module.begin) || range.substr(0, 1) != "-")
    return {};
  range.remove_prefix(1);
  if (!take_number(range, module.end) || !range.empty())
    return {};

  const std::size_t path = begin + WORDS[0].size() - 1;
  module.path = without_deletion(text.substr(path, id - path));
  const std::string_view build_id = text.substr(id + WORDS[1].size(), at - id - WORDS[1].size());
  if (build_id != "none" && !is_build_id(build_id))
    return {};
  if (build_id != "none")
    module.build_id = build_id;
  return module;
}

bool is_title_of_interruption(std::string_view text)
{
  return contains(text, "the back trace:");
}

bool is_title(std::string_view text)
{
  return is_title_of_interruption(text) || contains(text, "Unhandled exception is caught, ") ||
         contains(text, "Unknown/unhandled exception is caught:") || contains(text, "Unexpected error in ");
}

bool is_end_of_trace(std::string_view text)
{
  return text.empty() || text == ".";
}
