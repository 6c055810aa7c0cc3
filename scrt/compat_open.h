#ifndef SCRT_COMPAT_OPEN_H
#define SCRT_COMPAT_OPEN_H

/// @file
/// These calls open files, streams and pipes close-on-exec, whatever the C library supports. C code gets only the
/// functions; the pointers are for C++.
///
/// Each pointer leads to the C library's function where a probe found that the library honours the request for
/// close-on-exec, else to a wrapper that sets the flag after the call. The pointers are set before main and do not
/// change afterwards, so any thread may call through them. A static initialiser that may run earlier calls
/// init_compat_opens first. Function and wrapper return what the C library returned, with its errno, and log nothing.
/// Offsets have 64 bits.
///
/// The wrapper leaves a moment in which the descriptor is inheritable: a fork and exec of another thread in that moment
/// passes the descriptor on. A failure to set the flag is ignored.

#ifdef __cplusplus

#include <cstdio>

/// The type of open(2): the third argument, an unsigned `mode_t`, is the mode of a file that is created.
using open_cloexec_t = int (*)(const char* path, int flags, ...);

/// The type of fopen(3).
using fopen_compat_t = std::FILE* (*)(const char* path, const char* mode);

/// The type of freopen(3).
using freopen_compat_t = std::FILE* (*)(const char* path, const char* mode, std::FILE* fp);

/// The type of fdopen(3).
using fdopen_compat_t = std::FILE* (*)(int fd, const char* mode);

/// The type of popen(3).
using popen_compat_t = fopen_compat_t;

/// Open `path`, always close-on-exec. `flags` are those of open(2). The third argument, the mode of the file, is read
/// with O_CREAT only and is 0 otherwise. Returns a descriptor that the caller closes, or -1 with the `errno` of open.
extern open_cloexec_t open_cloexec;

/// Open the stream `path`, close-on-exec if the letter 'e' is in `mode` ("re"). Returns a stream that the caller
/// closes with fclose, or null with the `errno` of fopen.
extern fopen_compat_t fopen_compat;

/// Open `path` as the stream `fp` in place of its former file, close-on-exec if the letter 'e' is in `mode`. Returns
/// `fp`, or null with the `errno` of freopen; `fp` is closed then.
extern freopen_compat_t freopen_compat;

/// Make a stream of the open descriptor `fd`, which becomes close-on-exec if the letter 'e' is in `mode`; without it
/// the descriptor stays as it is. Returns a stream that owns `fd`, or null with the `errno` of fdopen; the caller
/// then still owns `fd`.
extern fdopen_compat_t fdopen_compat;

/// Run `command` in a shell, with a pipe to it or from it that is close-on-exec if the letter 'e' is in `mode` ("re").
/// Returns a stream that the caller closes with pclose, or null with the `errno` of popen.
extern popen_compat_t popen_compat;

/// Set those of the five pointers that are null, by trying each call. This function runs by itself before main, when
/// the code is loaded, and starts a shell then; another call is harmless, as long as no other thread is opening or
/// closing descriptors. A pointer that is already set is kept, with one exception: fopen_compat and freopen_compat are
/// decided together, so both are set anew when either is null. A trial that fails selects the wrapper. Reports nothing.
void init_compat_opens();

extern "C"
{
#endif

/// Make the open descriptor `fd` close-on-exec. Returns 0, or -1 with the `errno` of fcntl(2), such as EBADF.
/// Logs nothing. Any thread.
int enable_fd_cloexec(int fd);

/// Returns 1 if a descriptor is close-on-exec from the moment in which open_cloexec opens it, and 0 if a wrapper sets
/// the flag afterwards. Any thread.
int o_cloexec_enabled(void);

#ifdef __cplusplus
}
#endif

#endif /* SCRT_COMPAT_OPEN_H */
