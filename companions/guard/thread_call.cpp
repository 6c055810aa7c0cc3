#include "companions/guard/thread_call.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { TEXT_SIZE = 256, PATH_SIZE = 64 };

// The length of the text of a file of the thread, 0 if it cannot be read.
static std::size_t read_file(pid_t tid, const char* file, char (&text)[TEXT_SIZE])
{
  char path[PATH_SIZE];
  (void)std::snprintf(path, sizeof path, "/proc/self/task/%d/%s", tid, file);
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd == -1)
    return 0;

  const ssize_t n = ::read(fd, text, sizeof text - 1);
  (void)::close(fd);
  text[n > 0 ? n : 0] = '\0';
  return n > 0 ? static_cast<std::size_t>(n) : 0;
}

static std::uint64_t make_key(const char* text, std::size_t length)
{
  std::uint64_t key = 0xcbf29ce484222325; // FNV-1a
  for (std::size_t i = 0; i < length; ++i)
    key = (key ^ static_cast<unsigned char>(text[i])) * 0x100000001b3;
  return key != 0 ? key : 1;
}

// The second argument of each of these calls is memory of the caller's: the events, or the set of descriptors to read.
static bool is_event_wait(long call)
{
#ifdef SYS_epoll_wait
  if (call == SYS_epoll_wait)
    return true;
#endif
#ifdef SYS_select
  if (call == SYS_select)
    return true;
#endif
  return call == SYS_epoll_pwait || call == SYS_pselect6;
}

Thread_Call read_thread_call(pid_t tid, const Reactor_Memory& reactor)
{
  char text[TEXT_SIZE];
  std::size_t length = read_file(tid, "syscall", text);
  if (length == 0) {
    length = read_file(tid, "schedstat", text); // the time on a processor, and how often it got one
    return {Doing::RUNS, length != 0 ? make_key(text, length) : 0};
  }

  long call = -1;
  unsigned long second = 0;
  if (std::sscanf(text, "%ld %*x %lx", &call, &second) < 1)
    return {Doing::RUNS, 0}; // the text is "running"
  const bool waits = is_event_wait(call) && reactor.holds(second);
  return {waits ? Doing::WAITS_FOR_EVENTS : Doing::BLOCKS, make_key(text, length)};
}

void read_thread_name(pid_t tid, char (&name)[NAME_SIZE])
{
  char text[TEXT_SIZE];
  if (read_file(tid, "comm", text) == 0)
    (void)std::strcpy(text, "unknown");

  (void)std::snprintf(name, sizeof name, "%.*s", static_cast<int>(std::strcspn(text, "\n")), text);
}
