#ifndef TRACE_TRACE_OPTIONS_H
#define TRACE_TRACE_OPTIONS_H

#include <string>
#include <vector>

/// The command line of the program.
struct Trace_Options
{
  bool all = false;
  bool json = false;
  bool journal = false;
  std::string unit;
  std::string since;
  std::vector<std::string> debug_dirs; ///< absolute paths
  std::string file;                    ///< "-" for standard input
};

/// Read the command line but for --help and --version, which stand alone. Returns the reason why it is misused, or an
/// empty text. Any thread.
std::string read_trace_options(int argc, const char* const* argv, Trace_Options& options);

#endif // TRACE_TRACE_OPTIONS_H
