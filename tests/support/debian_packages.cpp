#include "tests/support/debian_packages.h"

#include "tests/support/command.h"

Debian_Packages::Debian_Packages()
{
  // The mask must make no difference: the packages are for everybody.
  (void)output_of("umask 077 && " TESTS_CPACK " --config " TESTS_CPACK_CONFIG " -B " + dir_.path());
}

std::string Debian_Packages::file(const std::string& name) const
{
  return without_newline(output_of("ls " + dir_ / name + "_*.deb"));
}

std::vector<std::string> Debian_Packages::names() const
{
  return lines_of(output_of("cd " + dir_.path() + " && ls *.deb | sed 's/_.*//'"));
}
