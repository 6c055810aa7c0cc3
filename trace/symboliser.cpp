#include "trace/symboliser.h"

// In the library's list, an empty entry is the directory of the file itself.
static std::string join_debug_path(const std::vector<std::string>& debug_dirs)
{
  std::string path = ":.debug";
  for (const std::string& dir : debug_dirs)
    path += ':' + dir;
  return path + ":/usr/lib/debug";
}

Symboliser::Symboliser(const std::vector<std::string>& debug_dirs) : debug_path_(join_debug_path(debug_dirs)) {}

const Library& Symboliser::library(const Module& module)
{
  std::unique_ptr<Library>& library = libraries_[{module.path, module.build_id}];
  if (!library)
    library = std::make_unique<Library>(module.path, module.build_id, debug_path_);
  return *library;
}

static Outcome outcome_of(Library_State state)
{
  switch (state) {
  case Library_State::MISSING:
    return Outcome::MISSING;
  case Library_State::REBUILT:
    return Outcome::REBUILT;
  default:
    return Outcome::UNREADABLE;
  }
}

Resolution Symboliser::resolve_in_file(const Module& module, std::uint64_t address, bool is_exact)
{
  Resolution resolution;
  const Library& file = library(module);
  if (!file.is_open()) {
    resolution.outcome = outcome_of(file.state());
    return resolution;
  }

  const std::uint64_t instruction = is_exact || address == 0 ? address : address - 1;
  resolution.places = file.places(instruction);
  if (!resolution.places.empty() && !resolution.places[0].file.empty())
    resolution.outcome = Outcome::RESOLVED;
  else {
    resolution.places.clear();
    resolution.symbol = demangled(file.symbol(instruction));
    resolution.outcome = file.has_debug_information() ? Outcome::NO_LINE : Outcome::NO_DEBUG;
  }
  return resolution;
}

std::uint64_t Symboliser::address_in_file(const Module& module, std::uint64_t address)
{
  return address - module.begin + library(module).first_address();
}

Resolution Symboliser::resolve(const Module& module, std::uint64_t address, bool is_exact)
{
  return resolve_in_file(module, address_in_file(module, address), is_exact);
}
