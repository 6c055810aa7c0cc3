#ifndef TESTS_SUPPORT_REQUIREMENTS_H
#define TESTS_SUPPORT_REQUIREMENTS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <string>

#include <unistd.h>

/// Leave a test, or a fixture's SetUp, that cannot run here for want of `what`. It is skipped with a message, but
/// fails where the environment variable CI is set: there, every test runs.
#define NEEDS(condition, what)                                                                                         \
  do {                                                                                                                 \
    if (condition)                                                                                                     \
      break;                                                                                                           \
    if (std::getenv("CI"))                                                                                             \
      FAIL() << "This test needs " << (what);                                                                          \
    GTEST_SKIP() << "This test needs " << (what);                                                                      \
  } while (false)

/// Whether the command `name` is installed.
inline bool has_tool(const std::string& name)
{
  return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

/// The names of those of the commands `tools` that are not installed, or an empty text.
inline std::string missing_tools(std::initializer_list<const char*> tools)
{
  std::string missing;
  for (const char* const tool : tools)
    if (!has_tool(tool))
      missing += (missing.empty() ? "" : ", ") + std::string(tool);
  return missing;
}

/// Whether zsh is installed and can run commands in pseudo-terminals.
inline bool has_zsh_with_terminal()
{
  return std::system("zsh -fc 'zmodload zsh/zpty && zpty probe true' >/dev/null 2>&1") == 0;
}

inline bool is_root()
{
  return geteuid() == 0;
}

/// Whether a process may be traced here, by strace.
inline bool can_trace()
{
  static const bool can = std::system("strace -D -o /dev/null true >/dev/null 2>&1") == 0;
  return can;
}

/// Whether a process may have mounts of its own here.
inline bool can_mount()
{
  static const bool can = std::system("unshare --mount mount --bind /etc/passwd /etc/passwd >/dev/null 2>&1") == 0;
  return can;
}

/// Whether a directory may be covered by a writable copy of itself here, in mounts of one's own.
inline bool can_overlay()
{
  static const bool can =
      std::system("unshare --mount sh -c 'mount -t tmpfs tmpfs /mnt && mkdir /mnt/upper /mnt/work &&"
                  " mount -t overlay -o lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work"
                  " overlay /etc' >/dev/null 2>&1") == 0;
  return can;
}

#endif // TESTS_SUPPORT_REQUIREMENTS_H
