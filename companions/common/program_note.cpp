#include "companions/common/program_note.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <link.h>

static const char NOTE_NAME[] = "starter";
enum Note_Type { LOOPS_NOTE = 1, VERSION_NOTE = 2, RELOADS_NOTE = 3, CALL_NOTE = 4 };

namespace
{
/// The note that is looked for, and its descriptor when it is found.
struct Search
{
  Note_Type type;
  std::string_view descriptor;
};
} // namespace

// Name and descriptor of a note begin at multiples of four bytes.
static std::size_t padded(std::size_t size)
{
  return (size + 3) & ~std::size_t{3};
}

static bool is_ours(const ElfW(Nhdr) & header, const char* name)
{
  return header.n_namesz == sizeof NOTE_NAME && std::memcmp(name, NOTE_NAME, sizeof NOTE_NAME) == 0;
}

static void find_in_notes(Search& search, const char* note, const char* end)
{
  while (end - note >= static_cast<std::ptrdiff_t>(sizeof(ElfW(Nhdr)))) {
    ElfW(Nhdr) header;
    std::memcpy(&header, note, sizeof header);
    const char* const name = note + sizeof header;
    const char* const descriptor = name + padded(header.n_namesz);
    if (is_ours(header, name) && header.n_type == search.type) {
      search.descriptor = {descriptor, header.n_descsz};
      return;
    }
    note = descriptor + padded(header.n_descsz);
  }
}

// The loader calls this for the executable first; the result 1 keeps it from going on with the libraries.
static int look_at_program(dl_phdr_info* info, std::size_t, void* arg)
{
  Search& search = *static_cast<Search*>(arg);

  for (int i = 0; i < info->dlpi_phnum && !search.descriptor.data(); ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    const char* const begin = reinterpret_cast<const char*>(info->dlpi_addr + segment.p_vaddr);
    if (segment.p_type == PT_NOTE)
      find_in_notes(search, begin, begin + segment.p_memsz);
  }
  return 1;
}

// The descriptor of the note, null if there is none.
static std::string_view find_note(Note_Type type)
{
  Search search = {type, {}};
  (void)::dl_iterate_phdr(look_at_program, &search);
  return search.descriptor;
}

// The descriptor is the distance from itself to the function.
template <typename Function>
static Function find_function(Note_Type type)
{
  const std::string_view descriptor = find_note(type);
  std::int64_t distance;
  if (descriptor.size() != sizeof distance)
    return nullptr;

  std::memcpy(&distance, descriptor.data(), sizeof distance);
  return reinterpret_cast<Function>(reinterpret_cast<std::uintptr_t>(descriptor.data()) +
                                    static_cast<std::uintptr_t>(distance));
}

starter_loops_t find_starter_loops()
{
  return find_function<starter_loops_t>(LOOPS_NOTE);
}

starter_reloads_t find_starter_reloads()
{
  return find_function<starter_reloads_t>(RELOADS_NOTE);
}

starter_call_t find_starter_call()
{
  return find_function<starter_call_t>(CALL_NOTE);
}

Program_Version find_program_version()
{
  const std::string_view texts = find_note(VERSION_NOTE);
  if (texts.empty() || texts.back() != '\0' || std::count(texts.begin(), texts.end(), '\0') != 2)
    return {"unknown", "unknown"};
  return {texts.data(), texts.data() + texts.find('\0') + 1};
}
