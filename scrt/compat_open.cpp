// The pointers lead to the C library's functions with 64-bit offsets, whatever the options of the build.
#undef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64

#include "scrt/compat_open.h"

#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

// The pointers are null by constant initialisation: nothing that runs at load time can take back what the probe has
// set.
open_cloexec_t open_cloexec = nullptr;
fopen_compat_t fopen_compat = nullptr;
freopen_compat_t freopen_compat = nullptr;
fdopen_compat_t fdopen_compat = nullptr;
popen_compat_t popen_compat = nullptr;

static int o_cloexec_enabled_ = 0;

static bool is_cloexec(int fd)
{
  const int flags = fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) != 0;
}

// The calls stay unchecked: a caller that got a descriptor shall not lose it because its flag could not be read or set.
static void set_cloexec(int fd)
{
  (void)fcntl(fd, F_SETFD, fcntl(fd, F_GETFD) | FD_CLOEXEC);
}

int enable_fd_cloexec(int fd)
{
  const int flags = fcntl(fd, F_GETFD);
  if (flags == -1)
    return -1;

  return fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

int o_cloexec_enabled(void)
{
  return o_cloexec_enabled_;
}

// Kept as it is: the mode is read with O_CREAT only, so an unnamed file (O_TMPFILE) is created with mode 0.
static mode_t get_mode(int flags, va_list args)
{
  return flags & O_CREAT ? va_arg(args, mode_t) : 0;
}

static int open_cloexec_direct(const char* path, int flags, ...)
{
  va_list args;
  va_start(args, flags);
  const mode_t mode = get_mode(flags, args);
  va_end(args);

  return open(path, flags | O_CLOEXEC, mode);
}

static int open_cloexec_indirect(const char* path, int flags, ...)
{
  va_list args;
  va_start(args, flags);
  const mode_t mode = get_mode(flags, args);
  va_end(args);

  const int fd = open(path, flags, mode);
  if (fd == -1)
    return -1;

  set_cloexec(fd);
  return fd;
}

static open_cloexec_t init_open_cloexec()
{
  int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (fd == -1)
    fd = open("/dev/zero", O_RDONLY | O_CLOEXEC);

  const bool honoured = fd != -1 && is_cloexec(fd);
  (void)close(fd); // closing -1 does nothing

  return honoured ? open_cloexec_direct : open_cloexec_indirect;
}

static FILE* set_cloexec_if_asked(FILE* fp, const char* mode)
{
  if (fp && std::strchr(mode, 'e'))
    set_cloexec(fileno(fp));
  return fp;
}

static FILE* fopen_indirect(const char* path, const char* mode)
{
  return set_cloexec_if_asked(fopen(path, mode), mode);
}

static FILE* freopen_indirect(const char* path, const char* mode, FILE* fp)
{
  return set_cloexec_if_asked(freopen(path, mode, fp), mode);
}

static void init_fopen_freopen(fopen_compat_t* fopen_ptr, freopen_compat_t* freopen_ptr)
{
  bool honoured = false;
  FILE* fp = fopen("/dev/null", "we");
  if (!fp)
    fp = fopen("/dev/zero", "re");
  if (fp) {
    honoured = is_cloexec(fileno(fp));
    (void)fclose(fp);
  }

  if (fopen_ptr)
    *fopen_ptr = honoured ? fopen : fopen_indirect;
  if (freopen_ptr)
    *freopen_ptr = honoured ? freopen : freopen_indirect;
}

static FILE* fdopen_indirect(int fd, const char* mode)
{
  return set_cloexec_if_asked(fdopen(fd, mode), mode);
}

static fdopen_compat_t init_fdopen()
{
  int fd = open("/dev/null", O_WRONLY);
  if (fd == -1)
    fd = open("/dev/zero", O_RDONLY | O_CLOEXEC);

  FILE* const fp = fd == -1 ? nullptr : fdopen(fd, "we");
  const bool honoured = fp && is_cloexec(fileno(fp));
  if (fp)
    (void)fclose(fp);
  // Kept as it is: a descriptor that became a stream is closed a second time, and -1 is closed when there is none.
  // Nothing else opens descriptors while the program is being loaded, so the second close only fails with an error.
  (void)close(fd);

  return honoured ? fdopen : fdopen_indirect;
}

static FILE* popen_indirect(const char* command, const char* mode)
{
  return set_cloexec_if_asked(popen(command, mode), mode);
}

static popen_compat_t init_popen()
{
  FILE* const fp = popen("/bin/true", "re");
  const bool honoured = fp && is_cloexec(fileno(fp));
  if (fp)
    (void)pclose(fp);

  return honoured ? popen : popen_indirect;
}

// A load-time constructor without a priority takes its turn among the static initialisers, in link order. This one
// needs none of them, but only the C library, which is ready before any of them. Code that wants its own choice of a
// pointer to be kept sets the pointer in a constructor with a priority, which runs earlier.
__attribute__((constructor)) void init_compat_opens()
{
  if (!open_cloexec)
    open_cloexec = init_open_cloexec();
  if (!fopen_compat || !freopen_compat)
    init_fopen_freopen(&fopen_compat, &freopen_compat);
  if (!fdopen_compat)
    fdopen_compat = init_fdopen();
  if (!popen_compat)
    popen_compat = init_popen();

  o_cloexec_enabled_ = open_cloexec != open_cloexec_indirect;
}
