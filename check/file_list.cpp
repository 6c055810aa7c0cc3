#include "check/file_list.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

File_List list_files(const std::vector<Source>& sources)
{
  File_List files;
  std::error_code ignored; // a path that cannot be examined stays on the host's list
  for (const Source& source : sources)
    if (source.is_file && !std::filesystem::is_directory(source.text, ignored))
      files.insert(source.text);
  return files;
}

bool save_file_list(const std::string& path, const File_List& files)
{
  errno = 0;
  std::ofstream out(path, std::ios::binary);
  for (const std::string& file : files)
    out << file << '\0';
  out.close();
  return out.good();
}

bool load_file_list(const std::string& path, File_List& files)
{
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  for (std::string file; std::getline(in, file, '\0');)
    files.insert(file);
  return in.eof();
}

void compare_file_lists(const File_List& at_start, const File_List& now, Findings& findings)
{
  for (const std::string& file : at_start)
    if (now.count(file) == 0)
      findings.push_back({Finding_Kind::CHANGED_FILES,
                          {file, 0},
                          "is one of the files of the start and not of those now: a hang-up looks for it, and reads no "
                          "further without it; put it back or restart"});
  for (const std::string& file : now)
    if (at_start.count(file) == 0)
      findings.push_back({Finding_Kind::CHANGED_FILES,
                          {file, 0},
                          "is not one of the files of the start: a hang-up does not read it; restart"});
}
