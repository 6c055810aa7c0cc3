#ifndef STARTER_CONFIGURATION_H
#define STARTER_CONFIGURATION_H

/// The last "." in `path` and what follows it; null when `path` is null or has none. Points into `path`.
const char* find_file_extension(const char* path);

/// Whether the text after the last "." of `path` is `ext`, byte for byte. False when either is null or empty.
bool is_file_extension(const char* path, const char* ext);

/// Whether `path` names a regular file, or a symbolic link to one. False, with the `errno` of stat(2), when it
/// cannot be examined.
bool is_regular_file(const char* path);

/// Open the framework's service configurator with its arguments, which loads the services and initialises them.
/// False when the configurator reports a failure, which it has logged itself. The program's disposition of the hang-up
/// signal stays. Main thread, once.
bool do_open_service(int argc, char** argv);

#endif // STARTER_CONFIGURATION_H
