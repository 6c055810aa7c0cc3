#ifndef TRACE_LOG_LINE_H
#define TRACE_LOG_LINE_H

/// @file
/// One line of a log, as far as back traces are concerned. A line may begin with what the syslog or the journal puts in
/// front of it. Any thread.

#include "trace/module.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// A line of a back trace: "module(symbol+0x1f) [0x7f...]", with less of it for a function that is not exported, or for
/// an address outside of every module.
struct Frame_Line
{
  std::string module; ///< empty for none
  std::string symbol; ///< mangled; empty for none
  std::int64_t offset = 0;
  bool has_offset = false; ///< from the symbol, or without one from where the module was loaded
  std::uint64_t address = 0;
};

/// A line without what the syslog has put in front of it, and who has written it: "starter[4711]", or empty.
struct Log_Line
{
  std::string_view writer;
  std::string_view text;
};

/// Take the line apart. The parts point into `line`.
Log_Line split_line(std::string_view line);

/// The frame in the text of a line, or none.
std::optional<Frame_Line> parse_frame(std::string_view text);

/// The module that the record in the text of a line names, or none. A record that was cut off may come before it in the
/// line.
std::optional<Module> parse_module(std::string_view text);

/// Whether a back trace follows the line, and whether its first address is that of an instruction that was interrupted:
/// all others are those where functions return to.
bool is_title(std::string_view text);
bool is_title_of_interruption(std::string_view text);

/// Whether the line ends a back trace.
bool is_end_of_trace(std::string_view text);

/// Whether the text can be the beginning of a frame, the rest of which the framework has cut off.
bool is_cut_frame(std::string_view text);

#endif // TRACE_LOG_LINE_H
