// Boots a machine of systemd and its journal, and runs a command in it, for scripts/demo: see print_usage(). The
// machine is that of the tests under systemd, and is gone at the end.

#include "tests/support/systemd_machine.h"

#include <cstdlib>
#include <iostream>
#include <string>

#include <unistd.h>

enum { USAGE = 2, NO_MACHINE = 3 };

static int print_usage()
{
  std::cerr << "demo_machine COMMAND [ARGUMENT...]: run the command in a machine of systemd, with two arguments more:\n"
               "a directory that it may write to, and the directory of the units. The status is 0 if the command\n"
               "succeeds, 1 if it fails, 3 if there can be no such machine here.\n";
  return USAGE;
}

static int refuse(const std::string& reason)
{
  std::cerr << "No machine of systemd can be had here: " << reason << '\n';
  return NO_MACHINE;
}

static std::string quoted(const std::string& word)
{
  std::string text = "'";
  for (const char c : word)
    text += c == '\'' ? "'\\''" : std::string(1, c);
  return text + "' ";
}

int main(int argc, char** argv)
{
  if (argc < 2)
    return print_usage();
  if (geteuid() != 0)
    return refuse("it takes root");
  if (!Systemd_Machine::is_installed())
    return refuse("systemd is not installed");
  if (std::system("unshare --mount --pid --uts --ipc --cgroup --fork true") != 0)
    return refuse("there is no right to make namespaces");

  Systemd_Machine machine;
  machine.add_journal();
  if (!machine.boot() || !machine.start_journal())
    return refuse("systemd has not come up. Its console:\n" + machine.console());

  std::string command;
  for (int i = 1; i < argc; ++i)
    command += quoted(argv[i]);
  return machine.succeeds(command + quoted(machine.dir().path()) + quoted(machine.dir() / "units")) ? EXIT_SUCCESS
                                                                                                    : EXIT_FAILURE;
}
