// The build-ids are read when a fault has happened, from the notes of the modules in memory, so that a start has
// nothing to do with them. A file may have been replaced by then; the memory has what runs.

#include "starter/trace_modules.h"

#include "scrt/log.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <limits.h>
#include <link.h>
#include <unistd.h>

enum { MAX_FRAMES = 128, MAX_MODULES = 64, MAX_BUILD_ID = 64 };

namespace
{
/// A part of a module in memory.
struct Bytes
{
  const unsigned char* data;
  std::size_t size;
};
} // namespace

// The part of the module from `offset` on, cut to what the module has: an unusual file must not lead out of its memory.
static Bytes part_of(const dl_find_object& module, std::size_t offset, std::size_t size)
{
  const unsigned char* const begin = static_cast<const unsigned char*>(module.dlfo_map_start);
  const std::size_t length = static_cast<std::size_t>(static_cast<const unsigned char*>(module.dlfo_map_end) - begin);
  if (offset >= length)
    return {nullptr, 0};
  return {begin + offset, std::min(size, length - offset)};
}

static std::size_t aligned(std::size_t size, std::size_t alignment)
{
  return (size + alignment - 1) / alignment * alignment;
}

static Bytes find_build_id(Bytes notes, std::size_t alignment)
{
  while (notes.size >= sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) note;
    std::memcpy(&note, notes.data, sizeof note);
    const std::size_t name = sizeof note;
    const std::size_t descriptor = aligned(name + note.n_namesz, alignment);
    const std::size_t end = descriptor + note.n_descsz;
    if (end > notes.size)
      break;

    if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof ELF_NOTE_GNU &&
        std::memcmp(notes.data + name, ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0)
      return {notes.data + descriptor, note.n_descsz};
    const std::size_t next = std::min(aligned(end, alignment), notes.size);
    notes = {notes.data + next, notes.size - next};
  }
  return {nullptr, 0};
}

// Every module begins with the header of its file.
static Bytes find_build_id(const dl_find_object& module)
{
  const Bytes start = part_of(module, 0, sizeof(ElfW(Ehdr)));
  ElfW(Ehdr) header = {};
  std::memcpy(&header, start.data, start.size);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_phentsize != sizeof(ElfW(Phdr)))
    return {nullptr, 0};

  const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(module.dlfo_map_start);
  for (std::size_t i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) segment;
    const Bytes entry = part_of(module, header.e_phoff + i * sizeof segment, sizeof segment);
    if (entry.size != sizeof segment)
      break;
    std::memcpy(&segment, entry.data, sizeof segment);
    if (segment.p_type != PT_NOTE)
      continue;

    const std::size_t offset = module.dlfo_link_map->l_addr + segment.p_vaddr - begin;
    const Bytes id = find_build_id(part_of(module, offset, segment.p_memsz), segment.p_align == 8 ? 8 : 4);
    if (id.size != 0)
      return id;
  }
  return {nullptr, 0};
}

static void format_build_id(Bytes id, char (&text)[2 * MAX_BUILD_ID + 1])
{
  (void)std::snprintf(text, sizeof text, "none");
  for (std::size_t i = 0; i < std::min<std::size_t>(id.size, MAX_BUILD_ID); ++i)
    (void)std::snprintf(text + 2 * i, 3, "%02x", id.data[i]);
}

// The path of the library as it was loaded, from the root. The loader has no path of the program.
static void find_path(const char* name, char (&path)[PATH_MAX])
{
  if (*name != '/') {
    const ssize_t length = ::readlink(*name ? "/proc/self/cwd" : "/proc/self/exe", path, sizeof path - 1);
    const std::size_t used = static_cast<std::size_t>(std::max<ssize_t>(length, 0));
    path[used] = '\0';
    if (*name)
      (void)std::snprintf(path + used, sizeof path - used, "/%s", name);
  } else
    (void)std::snprintf(path, sizeof path, "%s", name);
}

static void log_module(const dl_find_object& module)
{
  static char path[PATH_MAX]; // static, as the interrupted thread may have a small stack
  char build_id[2 * MAX_BUILD_ID + 1];
  char range[64];
  find_path(module.dlfo_link_map->l_name, path);
  format_build_id(find_build_id(module), build_id);
  (void)std::snprintf(range, sizeof range, "%#lx-%#lx", reinterpret_cast<unsigned long>(module.dlfo_map_start),
                      reinterpret_cast<unsigned long>(module.dlfo_map_end));

  LOG_RECORD(LM_INFO, "Module %C, build-id %C, at %C\n", path, build_id, range);
}

void log_trace_modules()
{
  static const link_map* modules[MAX_MODULES];
  void* frames[MAX_FRAMES];
  const int depth = backtrace(frames, MAX_FRAMES);

  std::size_t count = 0;
  for (int i = 0; i < depth && count < MAX_MODULES; ++i) {
    dl_find_object module; // this search is made for unwinders: it takes no lock
    if (_dl_find_object(frames[i], &module) != 0)
      continue;
    const auto end = modules + count;
    if (std::find(modules, end, module.dlfo_link_map) != end)
      continue;

    modules[count++] = module.dlfo_link_map;
    log_module(module);
  }
}
