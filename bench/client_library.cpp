// Stands for systemd's client library: systemd runs, and there is a watchdog of 30 seconds. What is sent goes nowhere.

#include <cstdint>

extern "C"
{
int sd_booted();
int sd_notify(int unset, const char* state);
int sd_watchdog_enabled(int unset, std::uint64_t* usec);
}

int sd_booted()
{
  return 1;
}

int sd_notify(int, const char*)
{
  return 1;
}

int sd_watchdog_enabled(int, std::uint64_t* usec)
{
  *usec = 30000000;
  return 1;
}
