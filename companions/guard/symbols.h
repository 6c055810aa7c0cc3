#ifndef COMPANIONS_GUARD_SYMBOLS_H
#define COMPANIONS_GUARD_SYMBOLS_H

/// @file
/// Functions and their addresses. Those that find something take the lock of the dynamic loader, as the usual functions
/// do. A stalled thread may hold it while it loads a library: find_place() and describe_address() take no lock and no
/// memory. Any thread.

#include <cstddef>
#include <cstdint>

struct Address_Range
{
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;

  bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

/// The modules in memory that have code of the framework: its library, and the program, which has templates of it.
struct Framework_Modules
{
  Address_Range library;
  Address_Range program;

  bool hold(std::uintptr_t address) const { return library.holds(address) || program.holds(address); }
};

Framework_Modules find_framework_modules();

/// The function of the framework that runs the event loop of a reactor.
Address_Range find_loop_function();

/// Functions of the framework's library in which a thread waits for events, or for its turn to do so. The wait of the
/// reactors that are built on select is not among them, as the library does not export it. Fills the first
/// elements of `ranges` and returns their number.
std::size_t find_waiting_functions(Address_Range* ranges, std::size_t size);

/// A place in the code of the process, with as much of it as is known.
struct Code_Place
{
  const char* module = nullptr; ///< the path of the library or the program, which lives as long as this is loaded
  std::uintptr_t offset = 0;    ///< in the module
  const char* function = nullptr;
  std::uintptr_t function_offset = 0; ///< in the function
};

/// Find the place of `ip`. Takes no lock and no memory.
Code_Place find_place(std::uintptr_t ip);

/// Write the place of `ip` as back traces name it, "library(function+0x1f) [0x7f...]", with as much of it as is known.
/// Returns the number of bytes, without the NUL that ends them; the text is cut to `size` bytes.
std::size_t describe_address(std::uintptr_t ip, char* text, std::size_t size);

#endif // COMPANIONS_GUARD_SYMBOLS_H
