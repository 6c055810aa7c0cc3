#ifndef SCRT_PATH_CONF_H
#define SCRT_PATH_CONF_H

/// @file
/// Path_Conf is the path of a configuration or data file.

#include <string>
#include <utility>

/// A path put together from a prefix, in which an environment variable may stand, an optional sub-directory and an
/// optional base name. On request the directory part is created. Parts are joined by one '/' whatever they end in or
/// begin with, and nothing is normalised.
///
/// In the prefix with its sub-directory, the first `$NAME` is replaced by the value of that variable. Other references
/// stay as they are, and so do a reference to a variable that is not set and one in braces. A name ends before any
/// character of "$~!#%^&*()-+=\|/?,.;:'\"`[]{}" and before white space.
///
/// The object owns its text and is copied by value. One object is not to be used from two threads at once. Construction
/// reads the environment without a lock.
class Path_Conf
{
public:
  /// Build `prefix`/`basename`. With `create`, make the directory `prefix` and its missing parents, with the permission
  /// bits `mode` less the umask; the base name is never made. A null or empty `basename` adds nothing.
  ///
  /// Every failure is logged here, and none throws:
  /// a null or empty `prefix` (emergency record with a back trace) and a prefix that cannot be expanded (error record;
  /// ENOMEM, or ENAMETOOLONG for a name of 4096 characters or more) leave str() empty;
  /// a directory that cannot be created (error record with the errno of mkdir_p) leaves the path as it is otherwise.
  Path_Conf(const char* prefix, bool create, const char* basename, unsigned mode);

  /// Do the same with `prefix`/`sub` for the prefix. A null or empty `sub` adds nothing.
  Path_Conf(const char* prefix, const char* sub, bool create, const char* basename, unsigned mode);

  ~Path_Conf();
  Path_Conf(const Path_Conf&) = default;            ///< Copies the text.
  Path_Conf(Path_Conf&&) = default;                 ///< Takes the text over.
  Path_Conf& operator=(const Path_Conf&) = default; ///< Copies the text.
  Path_Conf& operator=(Path_Conf&&) = default;      ///< Takes the text over.

  /// Append '/' and `sub`, unless it is null or empty. Returns this object.
  Path_Conf& append(const char* sub);

  /// Replace every occurrence of the text `name` by `value`, from left to right; the replacements are not searched
  /// again. An empty `name` occurs nowhere. Neither argument may be null.
  void fix(const char* name, const char* value);

  /// Returns the path, moved out of a temporary object.
  std::string str() && { return std::move(prefix_); }

  /// Returns the path, to read. The reference is valid as long as the object.
  const std::string& str() const& { return prefix_; }

  /// Returns the path, to read or to change in place. The reference is valid as long as the object.
  std::string& str() & { return prefix_; }

protected:
  std::string prefix_; ///< the path; empty when construction failed

private:
  void init(const char* prefix, bool create, const char* basename, unsigned mode);
};

#endif // SCRT_PATH_CONF_H
