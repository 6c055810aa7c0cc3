#ifndef CHECK_LIBRARY_PROBE_H
#define CHECK_LIBRARY_PROBE_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The questions about a library, and the libraries that are loaded before it. The host binds a function of the library
/// when it is called first; the probe binds all of them at once.
struct Library_Request
{
  std::vector<std::string> loaded;    ///< the libraries that the host has by then, by their names in the directives
  std::optional<std::string> library; ///< the name in the directive; none: only static services are asked for
  std::vector<std::string> symbols;   ///< to be looked up in the library
  std::vector<std::string> factories; ///< static factories, linked to the program or to `loaded`
  std::vector<std::string> statics;   ///< services that may be there without a directive
};

/// The answers.
struct Library_Result
{
  bool is_probed = false; ///< false: there was no process to try it in
  std::string error;      ///< why the library cannot be loaded; empty when it can
  std::string bind_error; ///< which of its functions no library has by then; empty when none is missing
  std::map<std::string, std::string> errors; ///< by symbol and factory that is missing: the reason, on one line
  std::set<std::string> missing_statics;     ///< the services among `statics` that are not there
  std::set<std::string> functions;           ///< the symbols that are functions
  std::set<std::string> objects;             ///< the symbols that are data
};

/// Load the library in a process of its own with the framework's own loader, which tries the names and the places that
/// it tries for the host. A library runs code when it is loaded: this code ends with the process, which is given
/// `timeout_sec` seconds. The standard streams of that process are /dev/null. `is_probed` is false when the pipe or the
/// process cannot be made. The calling process must have no other thread. Logs nothing.
Library_Result probe_library(const Library_Request& request, unsigned timeout_sec = 10);

#endif // CHECK_LIBRARY_PROBE_H
