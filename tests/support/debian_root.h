#ifndef TESTS_SUPPORT_DEBIAN_ROOT_H
#define TESTS_SUPPORT_DEBIAN_ROOT_H

#include <string>
#include <vector>

/// A minimal Debian in a directory, from the archives that this machine uses. It needs root and mmdebstrap.
class Debian_Root
{
public:
  /// Make it in `path`, which must not exist, with the packages of `include`, whose names are separated by commas. The
  /// test fails if that fails.
  explicit Debian_Root(std::string path, const std::string& include = "");

  const std::string& path() const { return path_; }

  /// Run the shell command `command` in the root, with mounts and processes of its own, so that none of them outlives
  /// the command. Returns what it writes; the test fails if the command does.
  std::string run(const std::string& command) const;

  /// Copy `packages`, which are files, into the root and install them with what they depend on.
  void install(const std::vector<std::string>& packages) const;

  /// Every file and directory, except caches and the records of the package manager. Sorted.
  std::vector<std::string> files() const;

private:
  const std::string path_;
};

#endif // TESTS_SUPPORT_DEBIAN_ROOT_H
