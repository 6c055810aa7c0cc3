#include "companions/guard/symbols.h"

#include "companions/common/program_note.h"

#include <ace/Reactor.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

namespace
{
/// The table of the functions that a library exports, as the dynamic loader uses it.
struct Symbol_Table
{
  std::uintptr_t base = 0;
  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  std::size_t count = 0;
};

struct Function
{
  const char* name = nullptr; // null for none
  Address_Range range;
};
} // namespace

// The table has no size of its own: the last symbol is the last one of the longest chain of its hash table.
static std::size_t count_symbols(const std::uint32_t* hash)
{
  const std::uint32_t buckets = hash[0];
  const std::uint32_t first = hash[1];
  const std::uint32_t filter_words = hash[2];
  const std::uint32_t* const bucket = hash + 4 + filter_words * (sizeof(ElfW(Addr)) / sizeof(std::uint32_t));
  const std::uint32_t* const chain = bucket + buckets;

  std::uint32_t last = 0;
  for (std::uint32_t i = 0; i < buckets; ++i)
    last = std::max(last, bucket[i]);
  if (last < first)
    return first;
  while ((chain[last - first] & 1) == 0)
    ++last;
  return last + 1;
}

static Symbol_Table read_table(const link_map& map)
{
  Symbol_Table table;
  table.base = map.l_addr;
  for (const ElfW(Dyn)* entry = map.l_ld; entry && entry->d_tag != DT_NULL; ++entry) {
    // The loader has made these offsets addresses, except for the library that the kernel provides.
    const std::uintptr_t address = entry->d_un.d_ptr < map.l_addr ? entry->d_un.d_ptr + map.l_addr : entry->d_un.d_ptr;
    if (entry->d_tag == DT_SYMTAB)
      table.symbols = reinterpret_cast<const ElfW(Sym)*>(address);
    else if (entry->d_tag == DT_STRTAB)
      table.names = reinterpret_cast<const char*>(address);
    else if (entry->d_tag == DT_GNU_HASH)
      table.count = count_symbols(reinterpret_cast<const std::uint32_t*>(address));
  }

  if (!table.symbols || !table.names)
    table.count = 0;
  return table;
}

static Function read_function(const Symbol_Table& table, std::size_t n)
{
  const ElfW(Sym)& symbol = table.symbols[n];
  const int type = symbol.st_info & 0xf;
  if (symbol.st_shndx == SHN_UNDEF || (type != STT_FUNC && type != STT_GNU_IFUNC))
    return {};

  const std::uintptr_t begin = table.base + symbol.st_value;
  return {table.names + symbol.st_name, {begin, begin + std::max<std::uintptr_t>(symbol.st_size, 1)}};
}

static bool find_module(std::uintptr_t address, dl_find_object& module)
{
  return _dl_find_object(reinterpret_cast<void*>(address), &module) == 0;
}

static Function find_function(const Symbol_Table& table, std::uintptr_t ip)
{
  for (std::size_t n = 0; n < table.count; ++n)
    if (const Function function = read_function(table, n); function.name && function.range.holds(ip))
      return function;
  return {};
}

// Any function of the framework's library would do.
static std::uintptr_t framework_address()
{
  return reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, "_ZN11ACE_Reactor22run_reactor_event_loopEPFiPS_E"));
}

static Address_Range find_module_range(std::uintptr_t address)
{
  dl_find_object module;
  if (!find_module(address, module))
    return {};

  return {reinterpret_cast<std::uintptr_t>(module.dlfo_map_start),
          reinterpret_cast<std::uintptr_t>(module.dlfo_map_end)};
}

Framework_Modules find_framework_modules()
{
  const std::uintptr_t program = reinterpret_cast<std::uintptr_t>(find_starter_loops());

  return {find_module_range(framework_address()), find_module_range(program)};
}

Address_Range find_loop_function()
{
  dl_find_object module;
  const std::uintptr_t address = framework_address();
  if (!find_module(address, module))
    return {};

  return find_function(read_table(*module.dlfo_link_map), address).range;
}

std::size_t find_waiting_functions(Address_Range* ranges, std::size_t size)
{
  static const char* const parts[] = {"14work_pending_i", "9ACE_Token14shared_acquire"};
  dl_find_object module;
  if (!find_module(framework_address(), module))
    return 0;

  const Symbol_Table table = read_table(*module.dlfo_link_map);
  std::size_t count = 0;
  for (std::size_t n = 0; n < table.count && count < size; ++n)
    if (const Function function = read_function(table, n); function.name)
      for (const char* const part : parts)
        if (std::strstr(function.name, part) && count < size)
          ranges[count++] = function.range;
  return count;
}

Code_Place find_place(std::uintptr_t ip)
{
  dl_find_object module;
  if (!find_module(ip, module))
    return {};

  const link_map& map = *module.dlfo_link_map;
  const Function function = find_function(read_table(map), ip);
  return {*map.l_name ? map.l_name : program_invocation_name, ip - map.l_addr, function.name,
          function.name ? ip - function.range.begin : 0};
}

std::size_t describe_address(std::uintptr_t ip, char* text, std::size_t size)
{
  const unsigned long address = ip;
  const Code_Place place = find_place(ip);
  int length;
  if (!place.module)
    length = std::snprintf(text, size, "[%#lx]", address);
  else if (place.function)
    length = std::snprintf(text, size, "%s(%s+%#lx) [%#lx]", place.module, place.function,
                           static_cast<unsigned long>(place.function_offset), address);
  else
    length =
        std::snprintf(text, size, "%s(+%#lx) [%#lx]", place.module, static_cast<unsigned long>(place.offset), address);
  return length < 0 ? 0 : std::min(static_cast<std::size_t>(length), size - 1);
}
