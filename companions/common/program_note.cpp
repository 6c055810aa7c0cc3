#include "companions/common/program_note.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <link.h>

static const char NOTE_NAME[] = "starter";
enum { NOTE_TYPE = 1 };

// Name and descriptor of a note begin at multiples of four bytes.
static std::size_t padded(std::size_t size)
{
  return (size + 3) & ~std::size_t{3};
}

static bool is_ours(const ElfW(Nhdr) & header, const char* name)
{
  return header.n_type == NOTE_TYPE && header.n_descsz == sizeof(std::int64_t) && header.n_namesz == sizeof NOTE_NAME &&
         std::memcmp(name, NOTE_NAME, sizeof NOTE_NAME) == 0;
}

// The function that a note of ours leads to, null if there is none among the notes from `note` to `end`.
static starter_loops_t find_in_notes(const char* note, const char* end)
{
  while (end - note >= static_cast<std::ptrdiff_t>(sizeof(ElfW(Nhdr)))) {
    ElfW(Nhdr) header;
    std::memcpy(&header, note, sizeof header);
    const char* const name = note + sizeof header;
    const char* const descriptor = name + padded(header.n_namesz);
    if (is_ours(header, name)) {
      std::int64_t distance;
      std::memcpy(&distance, descriptor, sizeof distance);
      return reinterpret_cast<starter_loops_t>(reinterpret_cast<std::uintptr_t>(descriptor) +
                                               static_cast<std::uintptr_t>(distance));
    }
    note = descriptor + padded(header.n_descsz);
  }
  return nullptr;
}

// The loader calls this for the executable first; the result 1 keeps it from going on with the libraries.
static int look_at_program(dl_phdr_info* info, std::size_t, void* result)
{
  starter_loops_t& found = *static_cast<starter_loops_t*>(result);

  for (int i = 0; i < info->dlpi_phnum && !found; ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    const char* const begin = reinterpret_cast<const char*>(info->dlpi_addr + segment.p_vaddr);
    if (segment.p_type == PT_NOTE)
      found = find_in_notes(begin, begin + segment.p_memsz);
  }
  return 1;
}

starter_loops_t find_starter_loops()
{
  starter_loops_t found = nullptr;
  (void)::dl_iterate_phdr(look_at_program, &found);
  return found;
}
