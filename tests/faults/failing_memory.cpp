// Preloaded into a process under test: the allocator, which fails when an environment variable says so. Allocations are
// counted from the first one after the dynamic loader.
//
//   FAIL_MEMORY=N       the N-th allocation fails
//   FAIL_MEMORY=N+      and so does every later one
//   COUNT_MEMORY=FILE   at its end, the process writes the number of allocations into that file

#include "tests/faults/failing_memory.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

static std::atomic<unsigned long> allocations;
static std::atomic<bool> is_open; // from the static initialisers on
static unsigned long first_failure = ULONG_MAX;
static unsigned long last_failure = ULONG_MAX;
static char count_file[PATH_MAX];

__attribute__((constructor)) static void open_gate()
{
  // The programs that are started by this one inherit the library.
  if (std::strcmp(program_invocation_short_name, "starter") != 0)
    return;

  (void)prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0); // a process that hangs must not outlive a test that is given up
  if (const char* const chosen = std::getenv("FAIL_MEMORY")) {
    char* end = nullptr;
    first_failure = std::strtoul(chosen, &end, 10);
    last_failure = *end == '+' ? ULONG_MAX - 1 : first_failure;
  }
  if (const char* const file = std::getenv("COUNT_MEMORY"))
    std::strncpy(count_file, file, sizeof count_file - 1);
  is_open = true;
}

__attribute__((destructor)) static void write_count()
{
  if (!*count_file)
    return;

  char text[32];
  const int length = std::snprintf(text, sizeof text, "%lu\n", allocations.load());
  const int fd = ::open(count_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  (void)!::write(fd, text, static_cast<std::size_t>(length)); // who reads the file notices that it is empty
  ::close(fd);
}

// A fault that this failure leads to ends the process without a record, as the system does it.
static void tell_whether_faults_are_caught()
{
  struct sigaction action;
  if (sigaction(SIGSEGV, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
    return;

  (void)!::write(STDERR_FILENO, BEFORE_FAULTS_ARE_CAUGHT, sizeof BEFORE_FAULTS_ARE_CAUGHT - 1);
  (void)!::write(STDERR_FILENO, "\n", 1);
}

static bool fails()
{
  if (!is_open)
    return false;

  const unsigned long number = ++allocations;
  if (number < first_failure || number > last_failure)
    return false;
  if (number == first_failure)
    tell_whether_faults_are_caught();
  errno = ENOMEM;
  return true;
}

// The C library's headers declare these in ways of their own, so ours have other names here and theirs in the object
// file. The library's definitions have second names, which are there before any library can be searched.
extern "C"
{
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* p, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* failing_malloc(std::size_t size) __asm__("malloc");
void* failing_calloc(std::size_t count, std::size_t size) __asm__("calloc");
void* failing_realloc(void* p, std::size_t size) __asm__("realloc");
void* failing_aligned_alloc(std::size_t alignment, std::size_t size) __asm__("aligned_alloc");
int failing_posix_memalign(void** result, std::size_t alignment, std::size_t size) __asm__("posix_memalign");
}

void* failing_malloc(std::size_t size)
{
  return fails() ? nullptr : __libc_malloc(size);
}

void* failing_calloc(std::size_t count, std::size_t size)
{
  return fails() ? nullptr : __libc_calloc(count, size);
}

void* failing_realloc(void* p, std::size_t size)
{
  return fails() ? nullptr : __libc_realloc(p, size);
}

void* failing_aligned_alloc(std::size_t alignment, std::size_t size)
{
  return fails() ? nullptr : __libc_memalign(alignment, size);
}

int failing_posix_memalign(void** result, std::size_t alignment, std::size_t size)
{
  void* const p = fails() ? nullptr : __libc_memalign(alignment, size);
  if (!p)
    return ENOMEM;

  *result = p;
  return 0;
}
