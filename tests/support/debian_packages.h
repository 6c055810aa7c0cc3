#ifndef TESTS_SUPPORT_DEBIAN_PACKAGES_H
#define TESTS_SUPPORT_DEBIAN_PACKAGES_H

#include "tests/support/temp_dir.h"

#include <string>
#include <vector>

/// The Debian packages of this build, made by CPack in a directory of their own. A test fails where it needs a package
/// that has not been made.
class Debian_Packages
{
public:
  Debian_Packages();

  /// The file of the package `name`.
  std::string file(const std::string& name) const;

  /// The names of all packages, sorted.
  std::vector<std::string> names() const;

  /// The directory that the packages were made in.
  const std::string& build_dir() const { return dir_.path(); }

private:
  Temp_Dir dir_;
};

#endif // TESTS_SUPPORT_DEBIAN_PACKAGES_H
