// The package of the resource agent as a file.

#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/requirements.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

TEST(pacemaker_package, is_found_without_fault_by_lintian)
{
  NEEDS(has_tool("lintian"), "lintian");
  const Debian_Packages packages;

  EXPECT_EQ("", output_of("lintian --allow-root --fail-on error,warning " + packages.file("starter-pacemaker")));
}

TEST(pacemaker_package, has_the_agent_and_what_belongs_to_it)
{
  const Debian_Packages packages;
  const std::string deb = packages.file("starter-pacemaker");

  EXPECT_THAT(lines_of(output_of("dpkg-deb --fsys-tarfile " + deb + " | tar tv | sed 's/ .* / /; /\\/$/d' | sort")),
              testing::UnorderedElementsAre("-rwxr-xr-x ./usr/lib/ocf/resource.d/starter/component",
                                            "-rw-r--r-- ./usr/lib/systemd/system/starter-pacemaker@.service",
                                            "-rw-r--r-- ./usr/share/doc/starter-pacemaker/changelog.gz",
                                            "-rw-r--r-- ./usr/share/doc/starter-pacemaker/copyright",
                                            "-rw-r--r-- ./usr/share/man/man7/ocf_starter_component.7.gz"));
  const std::string fields = output_of("dpkg-deb --field " + deb);
  EXPECT_THAT(fields, testing::HasSubstr("Architecture: all\n"));
  for (const char* const package : {"starter [(]", "pacemaker", "pacemaker-cli-utils", "resource-agents"})
    EXPECT_THAT(fields, testing::ContainsRegex(std::string("Depends: [^\n]*") + package));
}
