#include "trace/places.h"

#include <dwarf.h>
#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

namespace
{
struct Free
{
  void operator()(void* p) const { std::free(p); }
};

/// Entries of the debug information, each of which is inside of the next one.
struct Scopes
{
  std::unique_ptr<Dwarf_Die, Free> entries;
  int count = 0;

  Dwarf_Die* at(int i) const { return entries.get() + i; }
};
} // namespace

std::string demangled(const std::string& name)
{
  int status = 0;
  const std::unique_ptr<char, Free> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status));
  return name.substr(0, 2) == "_Z" && text ? text.get() : name;
}

std::string find_symbol(Dwfl_Module* module, std::uint64_t address)
{
  GElf_Off offset;
  GElf_Sym symbol;
  const char* const name = ::dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);

  return name && offset < symbol.st_size ? name : "";
}

// A compiler may leave out the table that leads from addresses to compilation units.
static Dwarf_Die* find_unit(Dwfl_Module* module, Dwarf_Addr address, Dwarf_Addr& bias)
{
  if (Dwarf_Die* const unit = ::dwfl_module_addrdie(module, address, &bias))
    return unit;

  for (Dwarf_Die* unit = nullptr; (unit = ::dwfl_module_nextcu(module, unit, &bias));)
    if (::dwarf_haspc(unit, address - bias) > 0)
      return unit;
  return nullptr;
}

// Around an inlined function, the first search finds where it is declared and not where it is inlined: the second one
// begins with the innermost entry and goes outwards.
static Scopes find_scopes(Dwarf_Die* unit, Dwarf_Addr address)
{
  Dwarf_Die* found = nullptr;
  const int count = ::dwarf_getscopes(unit, address, &found);
  const std::unique_ptr<Dwarf_Die, Free> first(found);
  if (count <= 0)
    return {};

  Scopes scopes;
  Dwarf_Die* around = nullptr;
  scopes.count = ::dwarf_getscopes_die(first.get(), &around);
  scopes.entries.reset(around);
  return scopes;
}

static std::string text_of(Dwarf_Die* entry, unsigned name)
{
  Dwarf_Attribute attribute;
  const char* const text = ::dwarf_formstring(::dwarf_attr_integrate(entry, name, &attribute));
  return text ? text : "";
}

static std::string function_name(Dwarf_Die* entry)
{
  for (const unsigned name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name})
    if (const std::string text = text_of(entry, name); !text.empty())
      return demangled(text);
  return text_of(entry, DW_AT_name);
}

static Dwarf_Word number_of(Dwarf_Die* entry, unsigned name)
{
  Dwarf_Attribute attribute;
  Dwarf_Word number = 0;
  (void)::dwarf_formudata(::dwarf_attr(entry, name, &attribute), &number); // failing, it leaves 0
  return number;
}

// Where the inlined function is called.
static void find_call(Dwarf_Die* unit, Dwarf_Die* inlined, Place& place)
{
  Dwarf_Files* files = nullptr;
  std::size_t count = 0;
  if (::dwarf_getsrcfiles(unit, &files, &count) != 0)
    return;

  const Dwarf_Word file = number_of(inlined, DW_AT_call_file);
  const char* const name = file < count ? ::dwarf_filesrc(files, file, nullptr, nullptr) : nullptr;
  place.file = name ? name : "";
  place.line = static_cast<int>(number_of(inlined, DW_AT_call_line));
}

static void find_line(Dwarf_Die* unit, Dwarf_Addr address, Place& place)
{
  Dwarf_Line* const line = ::dwarf_getsrc_die(unit, address);
  const char* const file = line ? ::dwarf_linesrc(line, nullptr, nullptr) : nullptr;
  if (!file)
    return;

  place.file = file;
  (void)::dwarf_lineno(line, &place.line); // failing, it leaves 0
}

// Entries of functions in unnamed namespaces have the last part of the name alone. The table of symbols has all of it.
static std::string whole_name(const std::string& name, const std::string& symbol)
{
  const std::string whole = name.find('(') == std::string::npos ? demangled(symbol) : symbol;
  return whole == symbol ? name : whole;
}

std::vector<Place> find_places(Dwfl_Module* module, std::uint64_t address)
{
  Dwarf_Addr bias = 0;
  Dwarf_Die* const unit = find_unit(module, address, bias);
  if (!unit)
    return {};

  std::vector<Place> places;
  Place place;
  find_line(unit, address - bias, place);
  const Scopes scopes = find_scopes(unit, address - bias);
  for (int i = 0; i < scopes.count; ++i) {
    Dwarf_Die* const entry = scopes.at(i);
    const int tag = ::dwarf_tag(entry);
    if (tag != DW_TAG_inlined_subroutine && tag != DW_TAG_subprogram)
      continue;

    place.function = function_name(entry);
    place.is_inlined = tag == DW_TAG_inlined_subroutine;
    if (!place.is_inlined)
      place.function = whole_name(place.function, find_symbol(module, address));
    places.push_back(place);
    if (!place.is_inlined)
      break;
    find_call(unit, entry, place);
  }
  return places;
}
