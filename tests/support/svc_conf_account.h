#ifndef TESTS_SUPPORT_SVC_CONF_ACCOUNT_H
#define TESTS_SUPPORT_SVC_CONF_ACCOUNT_H

#include <string>

// These functions give two accounts of a configuration file, the framework's and that of the checker's parser. An
// account has a line for each service that something is done with, for each library, and at the end for each error.

/// Return what the framework does with the file `path`, and the lines that it logs errors for. The framework leaks what
/// it has read before an error, and cuts names of some 4000 characters.
std::string framework_account(const std::string& path);

/// Return what the framework should do with the file, as the checker's parser reads its content `text`.
std::string parser_account(const std::string& text);

#endif // TESTS_SUPPORT_SVC_CONF_ACCOUNT_H
