#ifndef SCRT_MKDIR_P_H
#define SCRT_MKDIR_P_H

/// @file
/// These functions create a directory with its missing parents, and tell how much of a path exists already.

#include <functional>

#include <sys/stat.h>

/// Create the directory `path` and its missing parents, outermost first. Components are separated by one '/' or more;
/// a path is relative to the working directory unless it begins with one.
///
/// `mode` holds the permission bits of each directory made. It goes to mkdir(2) as it is, so the umask applies; without
/// the owner's write and search bits the next level cannot be made.
///
/// `cb`, unless empty, is called after each directory made, with the path of the directory as cut from `path`; it is
/// not called for directories that exist already. The text is valid during the call only. If `cb` returns false, the
/// walk ends, which is not a failure. An exception of `cb` is passed on.
///
/// Returns 0, or -1 with `errno`: EINVAL (null or empty path), ENOMEM, ENOTDIR (something in the way that is no
/// directory), or the error of mkdir (EACCES, ENAMETOOLONG, ENOSPC, EROFS, ...). Directories that were made before a
/// failure stay.
///
/// Other threads and processes may create the same directories meanwhile: an entry that turns up when this function is
/// about to make it counts as a directory, without another look. So does a symbolic link that leads nowhere.
/// Logs nothing: the caller knows what the directory was for. Any thread.
int mkdir_p(const char* path, unsigned mode, std::function<bool(const char*)> cb);

/// Do the same for a wide path, of which the framework passes on the low byte of each character.
int mkdir_p(const wchar_t* path, unsigned mode, std::function<bool(const wchar_t*)> cb);

/// Find the longest leading part of `path`, which must not be null, that exists as a chain of directories. `path` is
/// relative to the working directory unless it begins with '/'. Symbolic links are followed.
///
/// Returns this part as a new text that the caller releases with `ACE_OS::free`, and sets `errno` to 0. `*st` then
/// holds the status of that directory. For a path that begins with '/', the part is at least '/'. `struct stat` is the
/// one of this library's build, with 64-bit offsets.
///
/// Returns null with `errno`: ENOENT (empty path, or a relative one of which nothing exists), ENOTDIR (something in the
/// way, the last component included, that is no directory), or the error of stat(2) (EACCES, ELOOP, ...). `*st` may
/// have been written to. Null with `errno` 0 means that memory ran out.
///
/// A null `st` gives an empty text and `errno` 0. Logs nothing. Any thread.
char* longest_exist_dirname(const char* path, struct stat* st);

#endif // SCRT_MKDIR_P_H
