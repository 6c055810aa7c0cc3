#ifndef TRACE_LOG_H
#define TRACE_LOG_H

#include "trace/log_line.h"
#include "trace/module.h"

#include <cstddef>
#include <cstdio>
#include <deque>
#include <string>
#include <vector>

/// A frame of a back trace.
struct Frame
{
  std::string text; ///< as the log has it, without what the syslog has put in front of it
  Frame_Line line;
  bool is_cut = false;            ///< the framework has cut the frame off: `line` is empty
  bool is_interrupted = false;    ///< the address is that of an interrupted instruction
  const Module* module = nullptr; ///< of the log's records; null if none names it
};

struct Trace
{
  std::string title; ///< the line before the first frame, or the one that is known to begin a back trace
  std::vector<Frame> frames;
};

/// A line of a log: a frame, or anything else.
struct Line
{
  static constexpr std::size_t NO_TRACE = static_cast<std::size_t>(-1);

  std::string text;             ///< empty for a frame
  std::size_t trace = NO_TRACE; ///< the places of the frame in Log::traces and Trace::frames
  std::size_t frame = 0;
};

/// The back traces of a log in the order in which they begin. The log may have those of many processes, and the lines
/// of these may be mixed.
struct Log
{
  std::vector<Trace> traces;
  std::vector<Line> lines;    ///< all lines, if they are wanted
  std::deque<Module> modules; ///< by the records of the log; frames point to them
};

/// Read `file` to its end into the empty `log`, with all its lines if `keeps_lines`. False with errno if it cannot be
/// read, or if there is no memory for a line; what was read by then is in `log`. Logs nothing. Any thread.
bool read_log(std::FILE* file, bool keeps_lines, Log& log);

#endif // TRACE_LOG_H
