#include "trace/library_file.h"

#include "trace/dwfl_session.h"

#include <elfutils/libdwelf.h>
#include <libelf.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The path comes from a log: it may lead to a device, or to a pipe, which would be waited for.
static int open_regular(const std::string& path)
{
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat status;
  if (fd == -1 || (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)))
    return fd;

  (void)::close(fd); // nothing was written
  errno = EINVAL;
  return -1;
}

static std::string hexadecimal(const unsigned char* bytes, std::size_t count)
{
  static const char DIGITS[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i)
    text += {DIGITS[bytes[i] >> 4], DIGITS[bytes[i] & 0xf]};
  return text;
}

static std::vector<unsigned char> bytes_of(const std::string& hexadecimals)
{
  std::vector<unsigned char> bytes;
  for (std::size_t i = 0; i + 1 < hexadecimals.size(); i += 2)
    bytes.push_back(static_cast<unsigned char>(std::strtoul(hexadecimals.substr(i, 2).c_str(), nullptr, 16)));
  return bytes;
}

// False if the file is not of the kind that has build-ids.
static bool read_build_id(int fd, std::string& build_id)
{
  Elf* const elf = ::elf_begin(fd, ELF_C_READ_MMAP, nullptr);
  const bool is_elf = elf && ::elf_kind(elf) == ELF_K_ELF;
  if (is_elf) {
    const void* id = nullptr;
    const ssize_t size = ::dwelf_elf_gnu_build_id(elf, &id);
    if (size > 0)
      build_id = hexadecimal(static_cast<const unsigned char*>(id), static_cast<std::size_t>(size));
  }

  (void)::elf_end(elf);
  return is_elf;
}

// Looks in the directories of debug information and at servers, first for the library itself, then for its debug
// information alone, which has all that is needed. The library wants a module to look for, but gets no path: it
// would open whatever is there. Stores the path of what is found. Returns a negative number for nothing.
static int open_by_build_id(const std::string& build_id, const std::string& debug_path, std::string& path)
{
  const Dwfl_Session session(debug_path);
  if (!session.get())
    return -1;
  const std::vector<unsigned char> bytes = bytes_of(build_id);
  static const char NAME[] = "module";
  static constexpr Dwarf_Addr BEGIN = 0x1000;
  ::dwfl_report_begin(session.get());
  Dwfl_Module* const module = ::dwfl_report_module(session.get(), NAME, BEGIN, 2 * BEGIN);
  (void)::dwfl_report_end(session.get(), nullptr, nullptr); // fails only if the missing call-back does
  if (!module || ::dwfl_module_report_build_id(module, bytes.data(), bytes.size(), 0) != 0)
    return -1;

  Elf* elf = nullptr;
  char* found = nullptr;
  int fd = ::dwfl_build_id_find_elf(module, nullptr, NAME, BEGIN, &found, &elf);
  if (fd < 0)
    fd = ::dwfl_standard_find_debuginfo(module, nullptr, NAME, BEGIN, nullptr, nullptr, 0, &found);
  if (found)
    path = found;
  std::free(found);
  return fd;
}

static Library_State judge(int fd, const std::string& wanted, std::string& build_id)
{
  if (fd == -1)
    return errno == ENOENT || errno == ENOTDIR ? Library_State::MISSING : Library_State::UNREADABLE;
  if (!read_build_id(fd, build_id))
    return Library_State::UNREADABLE;
  return wanted.empty() || build_id == wanted ? Library_State::FOUND : Library_State::REBUILT;
}

Library_File find_library_file(const std::string& path, const std::string& build_id, const std::string& debug_path)
{
  (void)::elf_version(EV_CURRENT); // the library's duty; fails for no version that it knows
  Library_File file;
  file.path = path;
  file.fd = open_regular(path);
  file.state = judge(file.fd, build_id, file.build_id);
  if (file.state == Library_State::FOUND)
    return file;

  if (file.fd != -1)
    (void)::close(file.fd); // nothing was written
  file.fd = build_id.empty() ? -1 : open_by_build_id(build_id, debug_path, file.path);
  std::string found;
  if (file.fd >= 0 && judge(file.fd, build_id, found) == Library_State::FOUND)
    file.state = Library_State::FOUND;
  else if (file.fd >= 0)
    (void)::close(file.fd); // nothing was written
  return file;
}
