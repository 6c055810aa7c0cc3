#ifndef SCRT_MKDIR_P_H
#define SCRT_MKDIR_P_H

/// @file
/// Directories with their missing parents, and how much of a path is there already.

#include <functional>

#include <sys/stat.h>

/// Create the directory `path` and its missing parents, outermost first. Components are separated by one '/' or more;
/// a path is relative to the working directory unless it begins with one.
///
/// `mode` holds the permission bits of each directory made. It goes to mkdir(2) as it is, so the umask applies; without
/// the owner's write and search bits the next level cannot be made.
///
/// `cb`, unless empty, is called after each directory made, with its path as cut from `path`; not for those that were
/// there. The text is valid during the call only. Its false ends the walk, which is not a failure. What it throws is
/// passed on.
///
/// Returns 0, or -1 with `errno`: EINVAL (null or empty path), ENOMEM, ENOTDIR (something in the way that is no
/// directory), or what mkdir reported (EACCES, ENAMETOOLONG, ENOSPC, EROFS, ...). What was made before a failure stays.
///
/// Other threads and processes may create the same directories meanwhile: an entry that turns up when it is about to
/// be made counts as a directory, without another look. So does a symbolic link that leads nowhere.
/// Logs nothing: the caller knows what the directory was for. Any thread.
int mkdir_p(const char* path, unsigned mode, std::function<bool(const char*)> cb);

/// The same for a wide path, of which the framework passes on the low byte of each character.
int mkdir_p(const wchar_t* path, unsigned mode, std::function<bool(const wchar_t*)> cb);

/// The longest leading part of `path`, which must not be null, that exists as a chain of directories. `path` is
/// relative to the working directory unless it begins with '/'. Symbolic links are followed.
///
/// Returns a new text that the caller releases with `ACE_OS::free`, and sets `errno` to 0. `*st` then holds the status
/// of that directory. It is '/' at least for a path that begins so. `struct stat` is the one of this library's build,
/// with 64-bit offsets.
///
/// Returns null with `errno`: ENOENT (empty path, or a relative one of which nothing exists), ENOTDIR (something in the
/// way, the last component included, that is no directory), or what stat(2) reported (EACCES, ELOOP, ...). `*st` may
/// have been written to. Null with `errno` 0 means that memory ran out.
///
/// A null `st` gives an empty text and `errno` 0. Logs nothing. Any thread.
char* longest_exist_dirname(const char* path, struct stat* st);

#endif // SCRT_MKDIR_P_H
