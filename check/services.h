#ifndef CHECK_SERVICES_H
#define CHECK_SERVICES_H

#include "check/file_list.h"
#include "check/finding.h"

#include <cstddef>

/// The configuration that has been looked at.
struct Checked_Configuration
{
  File_List files;            ///< those that the configurator would get, whether they can be read or not
  std::size_t files_read = 0; ///< with each file counted once
  std::size_t directives = 0;
  std::size_t services = 0; ///< the names that are loaded, each counted once
};

/// Add to `findings` what the host would stumble over in the services that its command line asks for: in the files and
/// directives that the service configurator would get, in their order. Libraries are loaded in processes of their own;
/// no service is initialised. Moves to the directory "/" where the host would. False when that, or trying a library, is
/// not possible. `checked` has to be empty, and tells what has been looked at. `argv` holds the `argc` arguments of the
/// host, the first one its name, and stays as it is. The calling process must have no other thread. Logs nothing.
bool check_services(int argc, char** argv, Findings& findings, Checked_Configuration& checked);

/// Fill the empty `files` as check_services() would, and look at nothing else: no file is read and no process is
/// made. Moves to the directory "/" where the host would. False when that is not possible. Logs nothing.
bool list_configuration_files(int argc, char** argv, File_List& files);

#endif // CHECK_SERVICES_H
