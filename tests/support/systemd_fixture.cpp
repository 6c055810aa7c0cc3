#include "tests/support/systemd_fixture.h"

#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/wait_until.h"

#include <cstdlib>
#include <iostream>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Systemd_Fixture::Systemd_Fixture(const std::string& unit) : unit_(unit) {}

void Systemd_Fixture::SetUp()
{
  NEEDS(is_root(), "root, for namespaces of its own");
  NEEDS(Systemd_Machine::is_installed(), "systemd");

  const std::string fifo = machine_.dir() / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  ASSERT_EQ(0, chmod(fifo.c_str(), 0666)); // the program may run as any account
  fifo_fd_ = open(fifo.c_str(), O_RDWR | O_CLOEXEC);

  // systemd remembers a unit, with its result, after its end as long as another unit mentions it.
  machine_.add_unit("test.target", "[Unit]\nDefaultDependencies=no\nAfter=" + unit_ + '\n');
}

Systemd_Fixture::~Systemd_Fixture()
{
  if (fifo_fd_ != -1)
    close(fifo_fd_);
  if (HasFailure())
    std::cerr << "The console:\n" << machine_.console() << "\nThe log:\n" << log() << '\n';
}

std::string Systemd_Fixture::staller_directive(const std::string& params) const
{
  return dynamic_directive("Staller", "staller", "_make_Staller", machine_.dir() / "fifo" + params);
}

std::string Systemd_Fixture::test_settings() const
{
  std::string settings = "StandardOutput=null\nStandardError=append:" + machine_.dir() / "log" + '\n';
  for (const char* const name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"})
    if (const char* const value = std::getenv(name))
      settings += std::string("Environment=") + name + '=' + value + '\n';
  return settings;
}

std::string Systemd_Fixture::show(const std::string& property) const
{
  return machine_.run("systemctl show --value -p " + property + ' ' + unit_);
}

bool Systemd_Fixture::wait_for(const std::string& property, const std::string& value) const
{
  return wait_until([&] { return show(property) == value; });
}

std::string Systemd_Fixture::log() const
{
  return read_file(machine_.dir() / "log");
}

bool Systemd_Fixture::wait_for_record(const std::string& text) const
{
  return wait_until([&] { return log().find(text) != std::string::npos; });
}

bool Systemd_Fixture::wait_for_keep_alives(unsigned count) const
{
  std::set<std::string> times{show("WatchdogTimestampMonotonic")};
  return wait_until([&] {
    times.insert(show("WatchdogTimestampMonotonic"));
    return times.size() > count;
  });
}

std::string Systemd_Fixture::threads() const
{
  return machine_.run("sed -n 's/^Threads:[^0-9]*//p' /proc/" + show("MainPID") + "/status");
}

void Systemd_Fixture::tell_staller(char what) const
{
  ASSERT_EQ(1, write(fifo_fd_, &what, 1));
}
