#ifndef STARTER_STARTER_H
#define STARTER_STARTER_H

#include <ace/Basic_Types.h>

/// What the program defines with external linkage, declared for its unit tests. Nothing else calls it from outside.

/// The user or group id that `s` spells in decimal, 0 to 4294967295, or -1 when `s` is to be looked up as a name:
/// text after the digits, a minus sign, or too large a number. Leading white space and a plus sign are accepted, and
/// a text without any digits is id 0 if it is empty. `s` must not be null. May set `errno` to ERANGE. Any thread.
ACE_INT64 parse_uid_gid(const char* s);

/// The kernel's setting vm.swappiness, 0 for a text that does not begin with digits; only its first three characters
/// are looked at, which hold every valid setting. -1 when it cannot be read, with the `errno` of open(2) or read(2), or
/// when there is no text, which leaves `errno` alone. Logs nothing. Any thread.
short get_vm_swappiness();

/// The last "." in `path` and what follows it; null when `path` is null or has none. Points into `path`.
const char* find_file_extension(const char* path);

/// Whether the text after the last "." of `path` is `ext`, byte for byte. False when either is null or empty.
bool is_file_extension(const char* path, const char* ext);

/// Whether `path` names a regular file, or a symbolic link to one. False, with the `errno` of stat(2), when it
/// cannot be examined.
bool is_regular_file(const char* path);

/// Install the process's signal dispositions. Main thread, once, before any service is loaded. Reports nothing.
void init_signal_handlers();

/// For std::set_terminate: log the exception that nothing caught, with a back trace, and abort. Entered again, for
/// instance because there is no exception, it aborts at once.
[[noreturn]] void handle_terminate();

/// Make sure that the executable contains the string code that services bind to. No effect at run time.
void init_stl_symbols();

#endif // STARTER_STARTER_H
