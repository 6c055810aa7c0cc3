#ifndef TRACE_LIBRARY_H
#define TRACE_LIBRARY_H

#include "trace/dwfl_session.h"
#include "trace/library_file.h"
#include "trace/places.h"

#include <cstdint>
#include <string>
#include <vector>

/// The file of a library or a program, with its symbols and debug information. Its addresses are those of the file
/// itself, as if it were loaded at 0. One thread at a time.
class Library
{
public:
  /// Open what find_library_file() finds.
  Library(const std::string& path, const std::string& build_id, const std::string& debug_path);

  bool is_open() const { return module_ != nullptr; }
  Library_State state() const { return file_.state; }

  /// The build-id of the file at the path of the library; empty for none.
  const std::string& build_id() const { return file_.build_id; }

  // The functions below are for a library that is open.

  /// The address in the file at which the memory of the library begins.
  std::uint64_t first_address() const { return first_address_; }

  /// The function at `address`, after those that are inlined there, the innermost one first. Empty without debug
  /// information about it.
  std::vector<Place> places(std::uint64_t address) const { return find_places(module_, address); }

  /// Whether there is debug information, of whatever part of the library.
  bool has_debug_information() const;

  /// The name of the function at `address` in the table of symbols, mangled, or empty.
  std::string symbol(std::uint64_t address) const { return find_symbol(module_, address); }

  /// The addresses of the symbols that have the mangled name, sorted.
  std::vector<std::uint64_t> addresses_of(const std::string& symbol) const;

  /// Whether signal handlers return to `address`: the frame after it was interrupted there and has not called anything.
  bool is_signal_frame(std::uint64_t address) const;

private:
  Library_File file_;
  Dwfl_Session session_;
  Dwfl_Module* module_ = nullptr;
  std::uint64_t first_address_ = 0;
};

#endif // TRACE_LIBRARY_H
