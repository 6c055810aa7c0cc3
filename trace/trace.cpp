// Prints the back traces in a log with the functions, files and lines that their addresses belong to.

#include "starter/product_version.h"
#include "trace/journal.h"
#include "trace/log.h"
#include "trace/report.h"
#include "trace/resolver.h"
#include "trace/trace_options.h"
#include "trace/usage.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

enum { COMPLETE, INCOMPLETE, MISUSE };

static int print(const std::string& text, int status)
{
  const bool is_written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  return is_written && std::fflush(stdout) == 0 ? status : MISUSE;
}

static int fail(const std::string& text)
{
  std::fprintf(stderr, "starter-trace: %s\n", text.c_str());
  return MISUSE;
}

static bool read_file(const std::string& path, bool keeps_lines, Log& log, std::string& error)
{
  std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
  const bool is_read = file && read_log(file, keeps_lines, log);
  if (!is_read)
    error = "cannot read " + path + ": " + std::strerror(errno);
  if (file && file != stdin)
    (void)std::fclose(file); // nothing was written
  return is_read;
}

static std::vector<Resolved_Trace> resolve(const Log& log, Symboliser& symboliser)
{
  std::vector<Resolved_Trace> traces;
  for (const Trace& trace : log.traces) {
    Resolved_Trace resolved{&trace, resolve_trace(trace, symboliser), {}};
    resolved.notes = make_notes(resolved, symboliser);
    traces.push_back(std::move(resolved));
  }
  return traces;
}

// The notes stand behind the last frame of their back trace.
static std::string format_all(const Log& log, const std::vector<Resolved_Trace>& traces)
{
  std::string text;
  for (const Line& line : log.lines) {
    if (line.trace == Line::NO_TRACE) {
      text += line.text + '\n';
      continue;
    }
    text += format_frame(traces[line.trace], line.frame);
    if (line.frame + 1 == traces[line.trace].resolutions.size())
      text += format_notes(traces[line.trace]);
  }
  return text;
}

static std::string format_traces(const std::vector<Resolved_Trace>& traces)
{
  std::string text;
  for (const Resolved_Trace& trace : traces)
    text += (text.empty() ? "" : "\n") + format_text(trace);
  return text;
}

static int trace(const Trace_Options& options)
{
  Log log;
  std::string error;
  const bool is_read = options.journal ? read_journal(options.unit, options.since, options.all, log, error)
                                       : read_file(options.file, options.all, log, error);
  if (!is_read)
    return fail(error);

  Symboliser symboliser(options.debug_dirs);
  const std::vector<Resolved_Trace> traces = resolve(log, symboliser);
  const bool is_complete =
      std::all_of(traces.begin(), traces.end(), [](const Resolved_Trace& trace) { return trace.is_complete(); });
  const std::string text = options.json  ? format_json(traces)
                           : options.all ? format_all(log, traces)
                                         : format_traces(traces);
  return print(text, is_complete ? COMPLETE : INCOMPLETE);
}

int main(int argc, char** argv)
{
  const std::string option = argc > 1 ? argv[1] : "";
  if (option == "--help" || option == "--version") {
    if (argc > 2)
      return fail("--help and --version stand alone");
    return print(option == "--help" ? USAGE : "starter-trace " STARTER_VERSION " (rev " STARTER_REVISION ")\n",
                 COMPLETE);
  }

  Trace_Options options;
  const std::string misuse = read_trace_options(argc, argv, options);
  return misuse.empty() ? trace(options) : fail(misuse);
}
