#ifndef TRACE_REPORT_H
#define TRACE_REPORT_H

/// @file
/// Back traces with functions, files and lines, as text and as JSON. Any thread.

#include "trace/log.h"
#include "trace/symboliser.h"

#include <cstddef>
#include <string>
#include <vector>

/// A back trace of a log with what was found out about its frames.
struct Resolved_Trace
{
  const Trace* trace = nullptr;
  std::vector<Resolution> resolutions; ///< one for each frame
  std::vector<std::string> notes;      ///< about its modules, each a sentence without its full stop

  /// Whether every frame is resolved. The code that starts a program has no lines, and does not count.
  bool is_complete() const;
};

/// The things to say about the modules of a back trace.
std::vector<std::string> make_notes(const Resolved_Trace& trace, Symboliser& symboliser);

/// The lines for one frame of a back trace: one for each function, the inlined ones first.
std::string format_frame(const Resolved_Trace& trace, std::size_t frame);

std::string format_notes(const Resolved_Trace& trace);
std::string format_text(const Resolved_Trace& trace);
std::string format_json(const std::vector<Resolved_Trace>& traces);

#endif // TRACE_REPORT_H
