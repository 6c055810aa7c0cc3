#ifndef CHECK_FILE_LIST_H
#define CHECK_FILE_LIST_H

#include "check/configurator.h"
#include "check/finding.h"

#include <set>
#include <string>
#include <vector>

/// The paths of the configuration files that the host opens the configurator with.
using File_List = std::set<std::string>;

/// The files among the sources. A path that leads to a directory is none of them: the host leaves it out. Any thread.
File_List list_files(const std::vector<Source>& sources);

/// Write the list to the file at `path`, with a null character after each entry. False with errno. Any thread.
bool save_file_list(const std::string& path, const File_List& files);

/// Read a list that save_file_list() has written into the empty `files`. False with errno. Any thread.
bool load_file_list(const std::string& path, File_List& files);

/// Add to `findings` how the files that a start would read now differ from those that the host was started with. Any
/// thread.
void compare_file_lists(const File_List& at_start, const File_List& now, Findings& findings);

#endif // CHECK_FILE_LIST_H
