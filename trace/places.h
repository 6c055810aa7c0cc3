#ifndef TRACE_PLACES_H
#define TRACE_PLACES_H

#include <cstdint>
#include <string>
#include <vector>

struct Dwfl_Module;

/// A function, and the line in it.
struct Place
{
  std::string function; ///< as the sources have it; mangled if that cannot be read
  std::string file;
  int line = 0;            ///< 0 for code that no line stands for
  bool is_inlined = false; ///< into the function of the next place
};

/// The function of the module at `address`, after those that are inlined there, the innermost one first. Empty without
/// debug information about the address. One thread at a time for a module.
std::vector<Place> find_places(Dwfl_Module* module, std::uint64_t address);

/// The name of the function at `address` in the module's table of symbols, mangled, or empty. One thread at a time for
/// a module.
std::string find_symbol(Dwfl_Module* module, std::uint64_t address);

/// The name as the sources have it, or the name itself if it is not mangled. Any thread.
std::string demangled(const std::string& name);

#endif // TRACE_PLACES_H
