// The program tells systemd of itself through these three functions of systemd's client library. This library has them
// and nothing else, for processes that need no more: LIBSYSTEMD_FILENAME chooses it. The interface is that of the
// manual pages sd_booted(3), sd_notify(3) and sd_watchdog_enabled(3), with a negative error number for a failure;
// sockets of virtual machines (vsock) are left out, and so are states of more than some 200 KB, which do not fit into
// the usual buffer of a socket. The functions log nothing and use nothing but the C library. Any thread, as long as no
// other thread changes the environment.

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#define EXPORTED extern "C" [[gnu::visibility("default")]]

/// Returns 1 if the machine was booted by systemd, 0 if it was not, or a negative error.
EXPORTED int sd_booted()
{
  if (access("/run/systemd/system/", F_OK) == 0)
    return 1;
  return errno == ENOENT ? 0 : -errno;
}

// Makes `address` of the name of a socket: a path, or "@" and the name of an abstract socket. Returns its length or a
// negative error.
static int make_address(const char* name, sockaddr_un& address)
{
  const std::size_t length = std::strlen(name);
  const bool is_path = name[0] == '/';
  if (length < 2 || !(is_path || name[0] == '@'))
    return -EINVAL;
  if (length >= sizeof address.sun_path) // the NUL that ends a path must fit too
    return is_path ? -ENAMETOOLONG : -EINVAL;

  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name, length);
  if (!is_path)
    address.sun_path[0] = '\0';
  return static_cast<int>(offsetof(sockaddr_un, sun_path) + length + (is_path ? 1 : 0));
}

static int send_state(const char* state)
{
  if (!state)
    return -EINVAL;
  const char* const name = std::getenv("NOTIFY_SOCKET");
  if (!name)
    return 0;

  sockaddr_un address{};
  const int length = make_address(name, address);
  if (length < 0)
    return length;

  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0)
    return -errno;
  const ssize_t sent = sendto(fd, state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                              static_cast<socklen_t>(length));
  const int result = sent < 0 ? -errno : 1;
  close(fd);
  return result;
}

/// Send `state`, such as "READY=1", to the socket that NOTIFY_SOCKET names. Returns 1 if it was sent, 0 if the variable
/// is unset, or a negative error. `unset_environment` removes the variable, whatever the result.
EXPORTED int sd_notify(int unset_environment, const char* state)
{
  const int result = send_state(state);
  if (unset_environment)
    unsetenv("NOTIFY_SOCKET");
  return result;
}

// Reads a whole text as a number, after white space, and with the prefixes 0x, 0, 0o and 0b for other bases than ten.
// Returns 0 or a negative error.
static int read_number(const char* text, std::uint64_t& value)
{
  text += std::strspn(text, " \t\n\r");
  int base = 0;
  if (text[0] == '0' && text[1] != '\0' && std::strchr("bBoO", text[1])) {
    base = std::strchr("bB", text[1]) ? 2 : 8;
    text += 2;
  }

  char* end = nullptr;
  errno = 0;
  value = std::strtoull(text, &end, base);
  if (errno != 0)
    return -errno;
  if (end == text || *end != '\0')
    return -EINVAL;
  return *text == '-' && value != 0 ? -ERANGE : 0; // strtoull takes negative numbers
}

// Returns 1 and the period if the watchdog expects keep-alives of this process, 0 if it does not, or a negative error.
static int read_watchdog(std::uint64_t& usec)
{
  const char* const period = std::getenv("WATCHDOG_USEC");
  if (!period)
    return 0;
  int error = read_number(period, usec);
  if (error != 0)
    return error;
  if (usec == 0 || usec == UINT64_MAX)
    return -EINVAL;

  const char* const process = std::getenv("WATCHDOG_PID");
  if (!process)
    return 1;
  std::uint64_t pid = 0;
  error = read_number(process, pid);
  if (error != 0)
    return error;
  if (pid == 0 || pid > INT_MAX)
    return -ERANGE;
  return static_cast<pid_t>(pid) == getpid() ? 1 : 0;
}

/// Returns 1 if systemd expects keep-alives of this process, with the microseconds within which they must follow one
/// another in `*usec`, unless this is null. Returns 0 if WATCHDOG_USEC is unset or WATCHDOG_PID names another process,
/// or a negative error; `*usec` is then left alone. `unset_environment` removes both variables, whatever the result.
EXPORTED int sd_watchdog_enabled(int unset_environment, std::uint64_t* usec)
{
  std::uint64_t period = 0;
  const int result = read_watchdog(period);
  if (result > 0 && usec)
    *usec = period;
  if (unset_environment) {
    unsetenv("WATCHDOG_USEC");
    unsetenv("WATCHDOG_PID");
  }
  return result;
}
