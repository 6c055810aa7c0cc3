#ifndef TRACE_SYMBOLISER_H
#define TRACE_SYMBOLISER_H

#include "trace/library.h"
#include "trace/module.h"
#include "trace/places.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// How far an address could be led back to the sources.
enum class Outcome {
  RESOLVED,     ///< to a function and a line
  NO_LINE,      ///< there is debug information, and nothing in it about the address
  NO_DEBUG,     ///< there is no debug information for the build that ran
  MISSING,      ///< there is no file at the path of the module
  REBUILT,      ///< the file at the path is another build, and the one that ran is not to be found
  MISFIT,       ///< the file at the path cannot be what ran, as its functions are elsewhere
  UNREADABLE,   ///< the file at the path cannot be read, or it is no library or program
  UNKNOWN_PATH, ///< it is not known where the file is
  NO_MODULE,    ///< the address is outside of every module
  CUT           ///< the log has only the beginning of the frame
};

struct Resolution
{
  Outcome outcome = Outcome::NO_MODULE;
  std::vector<Place> places; ///< the innermost function first; all but the last one are inlined
  std::string symbol;        ///< without places, the function by the table of symbols, demangled, if it has one
};

/// Leads addresses of modules back to lines of their sources. Each file is opened once and stays open as long as the
/// object lives. One thread at a time.
class Symboliser
{
public:
  /// `debug_dirs` are directories to look for debug information in, by absolute paths without colons, before the usual
  /// one.
  explicit Symboliser(const std::vector<std::string>& debug_dirs);

  /// Lead back an address that `module` had in memory. An address to return to belongs to the instruction before it,
  /// which is the call; the address of an interrupted instruction is the exact one.
  Resolution resolve(const Module& module, std::uint64_t address, bool is_exact);

  /// The same for an address of the module's file.
  Resolution resolve_in_file(const Module& module, std::uint64_t address, bool is_exact);

  /// The address of the module's file that `address` belongs to. For a module that is open.
  std::uint64_t address_in_file(const Module& module, std::uint64_t address);

  /// The file of the module. The path must be absolute.
  const Library& library(const Module& module);

private:
  const std::string debug_path_;
  std::map<std::pair<std::string, std::string>, std::unique_ptr<Library>> libraries_; // by path and build-id
};

#endif // TRACE_SYMBOLISER_H
