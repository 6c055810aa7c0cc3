// The package of starter-trace as a file.

#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(trace_package, has_all_of_the_tool_and_nothing_of_the_program)
{
  const Temp_Dir dir;
  const Debian_Packages packages;
  const std::string deb = packages.file("starter-trace");
  const std::vector<std::string> files = lines_of(output_of("dpkg-deb --fsys-tarfile " + deb + " | tar t"));

  for (const char* const file :
       {"./usr/bin/starter-trace", "./usr/share/man/man1/starter-trace.1.gz",
        "./usr/share/bash-completion/completions/starter-trace", "./usr/share/zsh/vendor-completions/_starter-trace",
        "./usr/share/doc/starter-trace/copyright", "./usr/share/doc/starter-trace/changelog.gz"})
    EXPECT_THAT(files, testing::Contains(file));
  for (const std::string& file : files)
    EXPECT_EQ(std::string::npos, file.find("/sbin")) << file;

  // A machine that reads logs needs nothing of what runs components, and the other way round.
  const std::string depends = output_of("dpkg-deb --field " + deb + " Depends");
  EXPECT_NE(std::string::npos, depends.find("libdw1")) << depends;
  EXPECT_EQ(std::string::npos, depends.find("libace")) << depends;
  EXPECT_EQ(std::string::npos, output_of("dpkg-deb --field " + packages.file("starter") + " Depends").find("libdw"));

  (void)output_of("dpkg-deb --extract " + deb + ' ' + dir / "data");
  EXPECT_EQ("", output_of("nm " + dir / "data/usr/bin/starter-trace" + " 2>/dev/null"));
  EXPECT_EQ("", output_of("! grep -rl -e " TESTS_SOURCE_DIR " -e " + packages.build_dir() + ' ' + dir / "data"));
  EXPECT_NE(std::string::npos, output_of(dir / "data/usr/bin/starter-trace --help").find("Usage: starter-trace"));
}

TEST(trace_package, is_found_without_fault_by_lintian)
{
  NEEDS(has_tool("lintian"), "lintian");
  const Debian_Packages packages;

  EXPECT_EQ("", output_of("lintian --allow-root --fail-on error,warning " + packages.file("starter-trace")));
}
