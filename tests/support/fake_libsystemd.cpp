// A client library of the init system for tests, which LIBSYSTEMD_FILENAME chooses. It answers as environment variables
// say, and appends each call to a file, followed by ";". There are variants that lack one function.
//
//   FAKE_SD_BOOTED    what sd_booted returns, 1 by default
//   FAKE_SD_WATCHDOG  what sd_watchdog_enabled returns, 1 by default, with the period in WATCHDOG_USEC
//   FAKE_SD_NOTIFY    what sd_notify returns, 1 by default
//   FAKE_SD_CALLS     the file that calls are written to
//   NOTIFY_SOCKET     the path of the socket that sd_notify sends to, as the real one does

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// This file uses no code of the C++ library, because some of it would keep this library from being unloaded.
static void write_call(const char* format, int number = 0, const char* text = "")
{
  const char* const name = std::getenv("FAKE_SD_CALLS");
  const int fd = name ? ::open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666) : -1;
  if (fd == -1)
    return;
  if (dprintf(fd, format, number, text) < 0)
    std::perror(name);
  ::close(fd);
}

static int setting(const char* name)
{
  const char* const value = std::getenv(name);
  return value ? std::atoi(value) : 1;
}

#ifndef FAKE_SD_WITHOUT_BOOTED
extern "C" int sd_booted()
{
  write_call("sd_booted;");
  return setting("FAKE_SD_BOOTED");
}
#endif

#ifndef FAKE_SD_WITHOUT_NOTIFY
static void send_to_socket(const char* state)
{
  const char* const path = std::getenv("NOTIFY_SOCKET");
  const int fd = path && *path == '/' ? ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1;
  if (fd == -1)
    return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  if (::sendto(fd, state, std::strlen(state), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1)
    std::perror(path);
  ::close(fd);
}

extern "C" int sd_notify(int unset_environment, const char* state)
{
  write_call("sd_notify %d %s;", unset_environment, state);
  send_to_socket(state);
  return setting("FAKE_SD_NOTIFY");
}
#endif

#ifndef FAKE_SD_WITHOUT_WATCHDOG
extern "C" int sd_watchdog_enabled(int unset_environment, uint64_t* usec)
{
  write_call("sd_watchdog_enabled %d;", unset_environment);
  const char* const period = std::getenv("WATCHDOG_USEC");
  if (period)
    *usec = std::strtoull(period, nullptr, 10);
  return setting("FAKE_SD_WATCHDOG");
}
#endif
