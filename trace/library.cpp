#include "trace/library.h"

#include <elfutils/libdw.h>
#include <gelf.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

// A segment is loaded from the beginning of its page on.
static std::uint64_t find_first_address(Elf* elf)
{
  std::uint64_t first = UINT64_MAX;
  std::size_t count = 0;
  (void)::elf_getphdrnum(elf, &count); // without the number there are none
  for (std::size_t i = 0; i < count; ++i) {
    GElf_Phdr segment;
    if (::gelf_getphdr(elf, static_cast<int>(i), &segment) && segment.p_type == PT_LOAD) {
      const std::uint64_t page = std::max<std::uint64_t>(segment.p_align, 1);
      first = std::min(first, segment.p_vaddr / page * page);
    }
  }
  return first == UINT64_MAX ? 0 : first;
}

Library::Library(const std::string& path, const std::string& build_id, const std::string& debug_path)
    : file_(find_library_file(path, build_id, debug_path)), session_(debug_path)
{
  if (file_.state != Library_State::FOUND)
    return;

  if (session_.get()) {
    ::dwfl_report_begin(session_.get());
    module_ = ::dwfl_report_elf(session_.get(), path.c_str(), file_.path.c_str(), file_.fd, 0, true);
    (void)::dwfl_report_end(session_.get(), nullptr, nullptr); // fails only if the missing call-back does
  }
  if (!module_) {
    (void)::close(file_.fd); // it belongs to the module otherwise
    file_.state = Library_State::UNREADABLE;
    return;
  }
  GElf_Addr bias;
  if (Elf* const elf = ::dwfl_module_getelf(module_, &bias))
    first_address_ = find_first_address(elf);
}

bool Library::has_debug_information() const
{
  Dwarf_Addr bias;
  return ::dwfl_module_getdwarf(module_, &bias) != nullptr;
}

// A table of symbols may have the version behind the name, and back traces never do: "read@@GLIBC_2.2.5".
static bool is_name_of(const std::string& symbol, const char* name)
{
  return name && symbol.compare(0, std::string::npos, name, std::strcspn(name, "@")) == 0;
}

std::vector<std::uint64_t> Library::addresses_of(const std::string& symbol) const
{
  std::vector<std::uint64_t> addresses;
  const int count = ::dwfl_module_getsymtab(module_);
  for (int i = 0; i < count; ++i) {
    GElf_Sym entry;
    GElf_Addr address;
    const char* const name = ::dwfl_module_getsym_info(module_, i, &entry, &address, nullptr, nullptr, nullptr);
    if (is_name_of(symbol, name) && entry.st_shndx != SHN_UNDEF)
      addresses.push_back(address);
  }

  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  return addresses;
}

bool Library::is_signal_frame(std::uint64_t address) const
{
  Dwarf_Addr bias;
  Dwarf_CFI* const table = ::dwfl_module_eh_cfi(module_, &bias);
  Dwarf_Frame* frame = nullptr;
  if (!table || ::dwarf_cfi_addrframe(table, address - bias, &frame) != 0)
    return false;

  bool is_signal = false;
  (void)::dwarf_frame_info(frame, nullptr, nullptr, &is_signal); // failing, it leaves false
  std::free(frame);
  return is_signal;
}
