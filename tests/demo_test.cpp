// The demonstration of the companions, scripts/demo --companions, with what was built for the tests.

#include "tests/support/command.h"
#include "tests/support/guide.h"
#include "tests/support/requirements.h"
#include "tests/support/systemd_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;

using testing::HasSubstr;

// Run scripts/demo with these arguments, and with the build directory `build`.
static std::string demo(const std::string& arguments, const std::string& build = PROJECT_BUILD_DIR)
{
  return "STARTER_DEMO_BUILD=" + build + " timeout 300 " SOURCE_DIR "/scripts/demo " + arguments;
}

// A build directory in which no machine can be had. All else is that of the real one.
static std::string make_build_without_machine(const Temp_Dir& dir)
{
  const fs::path build(dir / "build");
  dir.write("build/tests/demo/demo_machine", "#!/bin/sh\necho 'No machine.' >&2\nexit 3\n");
  fs::permissions(build / "tests/demo/demo_machine", fs::perms::all);
  dir.write("build/cmake_install.cmake", "include(" PROJECT_BUILD_DIR "/companions/cmake_install.cmake)\n");
  for (const char* const part : {"examples", "starter", "tests/services"})
    fs::create_symlink(fs::path(PROJECT_BUILD_DIR) / part, build / part);
  return build;
}

static void expect_companions(const std::string& output)
{
  EXPECT_THAT(output, HasSubstr("Active: active (running)"));
  EXPECT_THAT(output, HasSubstr("Status: \"running; reactor: dev_poll; threads: 4; services: 5; reloads: 1; last"));
  for (const char* const field : {"MESSAGE=Echo listens on", "PRIORITY=6", "SYSLOG_IDENTIFIER=starter",
                                  "TID=", "STARTER_COMPONENT=demo", "CODE_FILE=examples/echo/echo.cpp", "CODE_LINE="})
    EXPECT_THAT(output, HasSubstr(std::string("\n    ") + field));
  EXPECT_THAT(output, HasSubstr("] has been in one callback for 1"));
  EXPECT_THAT(output, HasSubstr("/libhanger.so(hang_asleep+0x"));
  EXPECT_THAT(output, HasSubstr("] is back after "));
}

TEST(demo, of_the_companions_prints_what_the_guide_shows)
{
  NEEDS(is_root(), "root, for namespaces of its own");
  NEEDS(Systemd_Machine::is_installed(), "systemd");

  const Ended ended = run(demo("--companions"));

  EXPECT_EQ(0, ended.status) << ended.output;
  expect_companions(ended.output);
  unsigned shown = 0;
  for (const Block& block : blocks_of(read_file(SOURCE_DIR "/doc/operating.md")))
    if (block.kind == "demo") {
      expect_lines(block.text, ended.output);
      ++shown;
    }
  EXPECT_EQ(1u, shown);
}

TEST(demo, of_the_companions_takes_the_systemd_that_runs_the_machine_if_it_can_make_none)
{
  NEEDS(is_root(), "root, for namespaces of its own");
  NEEDS(Systemd_Machine::is_installed(), "systemd");
  Systemd_Machine machine;
  machine.add_journal();
  ASSERT_TRUE(machine.boot() && machine.start_journal()) << machine.console();
  const std::string build = make_build_without_machine(machine.dir());
  ASSERT_TRUE(machine.succeeds("mkdir -p /run/systemd/system && mount --bind " + machine.dir() / "units" +
                               " /run/systemd/system"));

  const std::string output = machine.run("export TMPDIR=" + machine.dir().path() + '\n' + demo("--companions", build) +
                                         " 2>&1; echo status $?; ls $TMPDIR/units");

  EXPECT_THAT(output, HasSubstr("No machine.\nTherefore the systemd of this machine runs the component.\n"));
  expect_companions(output);
  EXPECT_THAT(output, HasSubstr("\nstatus 0\n"));
  EXPECT_THAT(output, testing::Not(testing::EndsWith("starter-demo.service\ntest.target"))) << "the unit is left over";
}

TEST(demo, of_the_companions_fails_loudly_without_any_systemd)
{
  NEEDS(can_mount(), "the right to mount file systems");
  const Temp_Dir dir;
  const std::string script = dir.write("script", demo("--companions", make_build_without_machine(dir)) + '\n');

  const Ended ended = run("unshare --mount sh -c 'mount -t tmpfs tmpfs /run && sh " + script + "'");

  EXPECT_EQ(3, ended.status);
  EXPECT_EQ("No machine.\nNOTHING CAN BE SHOWN: systemd does not run this machine either.\n", ended.output);
}

TEST(demo, refuses_an_argument_that_it_does_not_know)
{
  const Ended ended = run(demo("--all"));

  EXPECT_EQ(2, ended.status);
  EXPECT_EQ("scripts/demo [--companions]\n", ended.output);
}

TEST(demo_machine, tells_why_it_cannot_be_had)
{
  NEEDS(is_root(), "root, to become somebody else");

  const Ended ended = run("setpriv --reuid=65534 --clear-groups " TESTS_DEMO_MACHINE " true");

  EXPECT_EQ(3, ended.status);
  EXPECT_EQ("No machine of systemd can be had here: it takes root\n", ended.output);
}
