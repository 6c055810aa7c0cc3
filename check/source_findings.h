#ifndef CHECK_SOURCE_FINDINGS_H
#define CHECK_SOURCE_FINDINGS_H

#include "check/finding.h"
#include "check/source_reader.h"

#include <vector>

/// Add to `findings` what the host passes over without a record in the directories that its command line names: all of
/// a directory without configuration files, and whatever only has the name of one. `argv` holds the `argc` arguments of
/// the host and stays as it is.
void check_directories(int argc, char** argv, Findings& findings);

/// Add to `findings` the files that cannot be read, those that are processed again, and the errors of syntax.
void check_sources(const std::vector<Read_Source>& sources, Findings& findings);

#endif // CHECK_SOURCE_FINDINGS_H
