#ifndef TRACE_MODULE_H
#define TRACE_MODULE_H

#include <cstdint>
#include <string>

/// A library or a program as it was in the memory of a process.
struct Module
{
  std::string path;        ///< absolute, or as the process was started for a program of which no more is known
  std::string build_id;    ///< hexadecimal, in lower case; empty if it is not known, or if there is none
  std::uint64_t begin = 0; ///< the addresses that it had; both are 0 if they are not known
  std::uint64_t end = 0;

  bool holds(std::uint64_t address) const { return address >= begin && address < end; }
};

#endif // TRACE_MODULE_H
