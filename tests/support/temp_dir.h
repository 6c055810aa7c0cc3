#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <string>

#include <sys/types.h>

/// A directory of the test that is open to every account. The destructor removes it with its content.
class Temp_Dir
{
public:
  Temp_Dir();
  ~Temp_Dir();

  Temp_Dir(const Temp_Dir&) = delete;
  Temp_Dir& operator=(const Temp_Dir&) = delete;

  const std::string& path() const { return path_; }

  /// The path of the entry `name` in the directory.
  std::string operator/(const std::string& name) const { return path_ + '/' + name; }

  /// Write `content` to the file `name`, make missing directories for it, and return its path. A file of this name is
  /// replaced in one step, as an editor does it.
  std::string write(const std::string& name, const std::string& content) const;

private:
  std::string path_;
  pid_t owner_; ///< the process that removes it
};

/// The content of the file at `path`; empty when it cannot be read.
std::string read_file(const std::string& path);

#endif // TESTS_SUPPORT_TEMP_DIR_H
