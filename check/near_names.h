#ifndef CHECK_NEAR_NAMES_H
#define CHECK_NEAR_NAMES_H

#include <string>

/// Whether the name of a file ends in something that is easily mistaken for ".conf": ".config", ".cfg", another case,
/// or a slip of one letter. Names of copies that are kept beside a file, or that take it out of use, such as "a.conf~"
/// and "a.conf.bak", are none: people mean them. Any thread.
bool is_almost_conf(const std::string& name);

#endif // CHECK_NEAR_NAMES_H
