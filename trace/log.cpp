#include "trace/log.h"

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <string_view>
#include <utility>

#include <sys/types.h>

namespace
{
/// The record that the lines of one writer are in the middle of.
struct Writer
{
  std::string title; // of the trace at hand, or the line before
  bool is_titled = false;
  bool is_interruption = false;
  std::size_t trace = Line::NO_TRACE; // the one that is open
};

class Log_Reader
{
public:
  Log_Reader(Log& log, bool keeps_lines) : log_(log), keeps_lines_(keeps_lines) {}

  void add_line(const std::string& line);
  void assign_modules();

private:
  void add_frame(Writer& writer, Frame frame);
  void add_cut_frame(Writer& writer, std::string_view text);
  void add_text(const std::string& line);

  Log& log_;
  const bool keeps_lines_;
  std::map<std::string, Writer, std::less<>> writers_;
  std::size_t count_ = 0;                             // of the lines so far
  std::vector<std::size_t> module_lines_;             // the line of each module
  std::vector<std::vector<std::size_t>> frame_lines_; // the line of each frame of each trace
};
} // namespace

void Log_Reader::add_text(const std::string& line)
{
  if (keeps_lines_)
    log_.lines.push_back({line});
}

void Log_Reader::add_frame(Writer& writer, Frame frame)
{
  if (writer.trace == Line::NO_TRACE) {
    writer.trace = log_.traces.size();
    log_.traces.push_back({writer.title, {}});
    frame_lines_.emplace_back();
    frame.is_interrupted = writer.is_titled && writer.is_interruption;
  }

  std::vector<Frame>& frames = log_.traces[writer.trace].frames;
  if (keeps_lines_)
    log_.lines.push_back({"", writer.trace, frames.size()});
  frame_lines_[writer.trace].push_back(count_);
  frames.push_back(std::move(frame));
}

// The framework loses the end of the line together with the rest of the frame: a record may follow in the same line.
void Log_Reader::add_cut_frame(Writer& writer, std::string_view text)
{
  if (writer.trace == Line::NO_TRACE || !is_cut_frame(text))
    return;

  Frame frame;
  frame.text = text;
  frame.is_cut = true;
  log_.traces[writer.trace].frames.push_back(std::move(frame));
  frame_lines_[writer.trace].push_back(count_);
}

void Log_Reader::add_line(const std::string& line)
{
  ++count_;
  const Log_Line parts = split_line(line);
  auto found = writers_.find(parts.writer);
  if (found == writers_.end())
    found = writers_.emplace(parts.writer, Writer()).first;
  Writer& writer = found->second;

  if (std::optional<Frame_Line> frame = parse_frame(parts.text)) {
    add_frame(writer, {std::string(parts.text), std::move(*frame), false, false, nullptr});
    return;
  }
  add_text(line);
  add_cut_frame(writer, parts.text);

  if (std::optional<Module> module = parse_module(parts.text)) {
    log_.modules.push_back(std::move(*module));
    module_lines_.push_back(count_);
    writer = Writer();
  } else if (is_title(parts.text))
    writer = {line, true, is_title_of_interruption(parts.text)};
  else if (is_end_of_trace(parts.text) || is_cut_frame(parts.text))
    writer = Writer();
  else if (writer.trace == Line::NO_TRACE && !writer.is_titled)
    writer.title = line;
}

// ---- Modules

static std::string_view file_name(std::string_view path)
{
  return path.substr(path.rfind('/') + 1);
}

// The program may have been started under any name, which a back trace has in place of its path.
static bool is_module_of(const Module& module, const Frame_Line& frame)
{
  return module.holds(frame.address) &&
         (frame.module.find('/') == std::string::npos || file_name(frame.module) == file_name(module.path));
}

// The modules of a back trace are named after it. The first fitting ones are meant: a log may have those of many
// processes, which hardly ever have their modules at the same addresses.
void Log_Reader::assign_modules()
{
  for (std::size_t t = 0; t < log_.traces.size(); ++t)
    for (std::size_t f = 0; f < log_.traces[t].frames.size(); ++f) {
      Frame& frame = log_.traces[t].frames[f];
      for (std::size_t m = 0; m < log_.modules.size() && !frame.module; ++m)
        if (module_lines_[m] > frame_lines_[t][f] && is_module_of(log_.modules[m], frame.line))
          frame.module = &log_.modules[m];
    }
}

bool read_log(std::FILE* file, bool keeps_lines, Log& log)
{
  Log_Reader reader(log, keeps_lines);
  char* buffer = nullptr;
  std::size_t size = 0;

  errno = 0;
  for (ssize_t length; (length = ::getline(&buffer, &size, file)) > 0;) {
    const bool has_end = buffer[length - 1] == '\n';
    reader.add_line(std::string(buffer, static_cast<std::size_t>(has_end ? length - 1 : length)));
    errno = 0;
  }
  const int error = std::ferror(file) != 0 || errno == ENOMEM ? errno : 0;
  std::free(buffer);
  reader.assign_modules();

  errno = error;
  return error == 0;
}
