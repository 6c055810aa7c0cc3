#ifndef STARTER_CONFIGURATION_H
#define STARTER_CONFIGURATION_H

/// The last "." in `path` and what follows it; null when `path` is null or has none. Points into `path`.
const char* find_file_extension(const char* path);

/// Whether the text after the last "." of `path` is `ext`, byte for byte. False when either is null or empty.
bool is_file_extension(const char* path, const char* ext);

/// Whether `path` names a regular file, or a symbolic link to one. False, with the `errno` of stat(2), when it
/// cannot be examined.
bool is_regular_file(const char* path);

/// Whether a configuration file can be read to its end, or is not even opened, or opens and cannot be read.
enum class Content { READABLE, NOT_OPENED, UNREADABLE };

/// Looks at what the framework is going to meet in the file `path`: its scanner ends the process when it has opened a
/// file that it cannot read, a directory for instance. The reason why a file is not readable is in `errno`. Pipes and
/// devices count as readable: what is taken from them here is gone, and opening one alone can be noticed at the other
/// end. Logs nothing.
Content look_into(const char* path);

/// Open the framework's service configurator with its arguments, which loads the services and initialises them. A file
/// among them that opens and cannot be read would end the process: it is logged and left out, now and when the services
/// are loaded anew. Without arguments (null), which is logged, nothing is opened.
/// False when the configurator reports a failure, which it has logged itself. The program's disposition of the hang-up
/// signal stays. Main thread, once.
bool do_open_service(int argc, char** argv);

/// Whether the services can be loaded anew: false when one of the files that would be read for it opens and cannot be
/// read, which would end the process. The file and the reason are logged then.
/// Main thread, in signal handlers too where it holds no lock and is not about to open the configurator.
bool is_reload_possible();

#endif // STARTER_CONFIGURATION_H
