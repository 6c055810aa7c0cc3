#ifndef TRACE_DWFL_SESSION_H
#define TRACE_DWFL_SESSION_H

#include <elfutils/libdwfl.h>

#include <string>

/// A session of elfutils' library, which owns what it reads. One thread at a time.
class Dwfl_Session
{
public:
  /// `debug_path` is the library's list of directories with debug information, for example ":.debug:/usr/lib/debug".
  explicit Dwfl_Session(const std::string& debug_path);
  ~Dwfl_Session();

  Dwfl_Session(const Dwfl_Session&) = delete;
  Dwfl_Session& operator=(const Dwfl_Session&) = delete;

  Dwfl* get() const { return dwfl_; } ///< null if there is no memory

private:
  std::string debug_path_;
  char* debug_path_pointer_; // the library wants the address of a pointer
  Dwfl_Callbacks callbacks_;
  Dwfl* dwfl_;
};

#endif // TRACE_DWFL_SESSION_H
