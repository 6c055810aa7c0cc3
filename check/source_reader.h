#ifndef CHECK_SOURCE_READER_H
#define CHECK_SOURCE_READER_H

#include "check/configurator.h"
#include "check/placed_directive.h"
#include "check/svc_conf.h"

#include <set>
#include <string>
#include <vector>

/// The files of a directory that is given with -f.
struct Directory_Listing
{
  std::set<std::string> files;       ///< the paths that stand for it
  std::set<std::string> misnamed;    ///< the paths of regular files whose names are almost those of such files
  std::set<std::string> passed_over; ///< the paths that have the name of such a file and are no regular file
};

/// List the directory at `path` into `listing`. False if it cannot be opened as a directory.
bool list_directory(const std::string& path, Directory_Listing& listing);

/// A file or a directive of -S, and what is in it.
struct Read_Source
{
  Source source;
  int error = 0;            ///< errno of a file that cannot be read
  bool is_left_out = false; ///< the file opens and cannot be read: the host goes on without it
  bool is_unlooked = false; ///< a pipe or a device, which the host reads: looking into it would take its content away
  bool is_repeated = false; ///< this file has been read before: its content is left out here
  Svc_Conf conf;
};

/// Read the sources in their order, up to the one at which the configurator would stop as it cannot open it. The paths
/// are looked up from the working directory. No file is waited for. Logs nothing.
std::vector<Read_Source> read_sources(const std::vector<Source>& sources);

/// The place of a line in the source. A directive of -S has no lines: its place is the command line.
Place place_of(const Source& source, int line);

/// The directives of all sources in their order.
std::vector<Placed_Directive> place_directives(const std::vector<Read_Source>& sources);

#endif // CHECK_SOURCE_READER_H
