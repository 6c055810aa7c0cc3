#include "trace/report.h"

#include "check/characters.h"
#include "check/json_string.h"
#include "trace/resolver.h"

#include <algorithm>

namespace
{
struct Words
{
  const char* name;   // in JSON
  const char* reason; // behind a frame
};
} // namespace

static Words words_of(Outcome outcome)
{
  switch (outcome) {
  case Outcome::RESOLVED:
    return {"resolved", ""};
  case Outcome::NO_LINE:
    return {"no-line", "no line for this address"};
  case Outcome::NO_DEBUG:
    return {"no-debug-information", "no debug information"};
  case Outcome::MISSING:
    return {"missing", "the file is missing"};
  case Outcome::REBUILT:
    return {"rebuilt", "rebuilt since"};
  case Outcome::MISFIT:
    return {"misfit", "not the file that ran"};
  case Outcome::UNREADABLE:
    return {"unreadable", "the file cannot be read"};
  case Outcome::UNKNOWN_PATH:
    return {"unknown-path", "the log does not tell the path"};
  case Outcome::CUT:
    return {"cut", "cut off in the log"};
  case Outcome::NO_MODULE:
    break;
  }
  return {"no-module", "in no module"};
}

// The outermost frame of a program is code of the C library that is delivered without debug information.
static bool is_start(const Resolution& resolution)
{
  return resolution.outcome == Outcome::NO_LINE && resolution.symbol == "_start";
}

bool Resolved_Trace::is_complete() const
{
  return std::all_of(resolutions.begin(), resolutions.end(), [](const Resolution& resolution) {
    return resolution.outcome == Outcome::RESOLVED || is_start(resolution);
  });
}

// ---- Text

static std::string hexadecimal(std::uint64_t number)
{
  char text[32];
  (void)std::snprintf(text, sizeof text, "%#llx", static_cast<unsigned long long>(number));
  return number == 0 ? "0x0" : text;
}

static std::string file_name(const std::string& path)
{
  return path.substr(path.rfind('/') + 1);
}

static std::string numbered(std::size_t frame, const std::string& text)
{
  std::string number = '#' + std::to_string(frame);
  number.resize(std::max<std::size_t>(number.size() + 1, 4), ' ');
  return number + escape_controls(text) + '\n';
}

// The function as the symbols or the log tell it.
static std::string known_function(const Frame& frame, const Resolution& resolution)
{
  if (!frame.line.symbol.empty())
    return demangled(frame.line.symbol);
  return resolution.symbol.empty() ? hexadecimal(frame.line.address) : resolution.symbol;
}

std::string format_frame(const Resolved_Trace& trace, std::size_t frame)
{
  const Frame& what = trace.trace->frames[frame];
  const Resolution& resolution = trace.resolutions[frame];
  const std::string reason = words_of(resolution.outcome).reason;
  if (what.is_cut)
    return numbered(frame, what.text + ": " + reason);
  const std::string path = module_of(what).path;
  const std::string module = path.empty() ? "" : " (" + file_name(path) + ')';
  if (resolution.places.empty())
    return numbered(frame, known_function(what, resolution) + module + ": " + reason);

  std::string text;
  for (const Place& place : resolution.places)
    text += numbered(frame, place.function + " at " + place.file + ':' + std::to_string(place.line) +
                                (place.is_inlined ? ", inlined" : "") + module);
  return text;
}

// The sentence about the module of a frame, or an empty one.
static std::string note_of(const Frame& frame, Outcome outcome, Symboliser& symboliser)
{
  const Module module = module_of(frame);
  const std::string build = module.build_id.empty() ? "" : " of the build-id " + module.build_id;
  switch (outcome) {
  case Outcome::REBUILT: {
    const std::string& now = symboliser.library(module).build_id();
    return module.path + " was rebuilt since: the build-id " + module.build_id + " ran, and the file has " +
           (now.empty() ? "none" : now);
  }
  case Outcome::MISFIT:
    return module.path + " is not the file that ran: its functions are elsewhere";
  case Outcome::MISSING:
  case Outcome::UNREADABLE:
    return module.path + (outcome == Outcome::MISSING ? " is missing" : " cannot be read") +
           (build.empty() ? "" : ", and so is debug information" + build);
  case Outcome::NO_DEBUG:
    return "There is no debug information for " + module.path + build;
  case Outcome::RESOLVED:
    return build.empty() ? module.path + " is taken for the file that ran, as the log does not tell its build-id" : "";
  default:
    return "";
  }
}

std::vector<std::string> make_notes(const Resolved_Trace& trace, Symboliser& symboliser)
{
  std::vector<std::string> notes;
  for (std::size_t i = 0; i < trace.resolutions.size(); ++i) {
    const std::string note = note_of(trace.trace->frames[i], trace.resolutions[i].outcome, symboliser);
    if (!note.empty() && std::find(notes.begin(), notes.end(), note) == notes.end())
      notes.push_back(note);
  }
  return notes;
}

std::string format_notes(const Resolved_Trace& trace)
{
  std::string text;
  for (const std::string& note : trace.notes)
    text += escape_controls(note) + ".\n";
  return text;
}

std::string format_text(const Resolved_Trace& trace)
{
  std::string text = escape_controls(trace.trace->title) + '\n';
  for (std::size_t i = 0; i < trace.resolutions.size(); ++i)
    text += format_frame(trace, i);
  return text + format_notes(trace);
}

// ---- JSON

static std::string json_or_null(const std::string& text)
{
  return text.empty() ? "null" : json_string(text);
}

static std::string format_json(const Place& place)
{
  return "{\"function\": " + json_or_null(place.function) + ", \"file\": " + json_or_null(place.file) +
         ", \"line\": " + (place.line > 0 ? std::to_string(place.line) : "null") +
         ", \"inlined\": " + (place.is_inlined ? "true" : "false") + '}';
}

static std::string format_json(const Frame& frame, const Resolution& resolution)
{
  const Module module = module_of(frame);
  std::string text = "{\"text\": " + json_string(frame.text);
  text += ", \"address\": " + (frame.is_cut ? "null" : json_string(hexadecimal(frame.line.address)));
  text += ", \"module\": " + json_or_null(module.path) + ", \"build_id\": " + json_or_null(module.build_id);
  text += ", \"outcome\": " + json_string(words_of(resolution.outcome).name) + ", \"places\": [";
  const char* separator = "";
  for (const Place& place : resolution.places) {
    text += separator + format_json(place);
    separator = ", ";
  }
  return text + "]}";
}

static std::string format_json(const Resolved_Trace& trace)
{
  std::string text = "{\"title\": " + json_string(trace.trace->title) + ", \"frames\": [";
  for (std::size_t i = 0; i < trace.resolutions.size(); ++i)
    text += (i == 0 ? "\n    " : ",\n    ") + format_json(trace.trace->frames[i], trace.resolutions[i]);
  text += "], \"notes\": [";
  for (std::size_t i = 0; i < trace.notes.size(); ++i)
    text += (i == 0 ? "\n    " : ",\n    ") + json_string(trace.notes[i]);
  return text + "]}";
}

std::string format_json(const std::vector<Resolved_Trace>& traces)
{
  std::string text = "{\"traces\": [";
  for (std::size_t i = 0; i < traces.size(); ++i)
    text += (i == 0 ? "\n  " : ",\n  ") + format_json(traces[i]);
  return text + "]}\n";
}
