#ifndef TRACE_LIBRARY_FILE_H
#define TRACE_LIBRARY_FILE_H

#include <string>

enum class Library_State {
  FOUND,     ///< the file is the one that ran, or it is not known which one did
  MISSING,   ///< there is no such file
  REBUILT,   ///< the file has another build-id than the one that ran, or none
  UNREADABLE ///< the file cannot be read, or it is no library or program
};

struct Library_File
{
  Library_State state = Library_State::MISSING;
  std::string path;     ///< of what was opened
  std::string build_id; ///< of the file at the path of the library; empty for none
  int fd = -1;          ///< owned by the caller if the state is FOUND, else meaningless
};

/// Find the library or program that had the path and the build-id when it ran. The file at the path may be another one
/// by now. If so, and if a file of the build-id is among the debug information in `debug_path` or at a server of
/// debuginfod, that one is found. With an empty build-id, the file at the path is taken. Any thread.
Library_File find_library_file(const std::string& path, const std::string& build_id, const std::string& debug_path);

#endif // TRACE_LIBRARY_FILE_H
