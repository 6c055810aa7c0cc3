#ifndef CTL_SOCKETS_H
#define CTL_SOCKETS_H

#include <string>
#include <vector>

/// Components have their runtime directories here, one of its name each.
constexpr char RUNTIME_DIR[] = "/run/starter";

/// Whether `name` may be the name of a component, which is the name of a directory too.
bool is_component_name(const std::string& name);

/// The path of the control socket of a component whose runtime directory is in `runtime_dir`.
std::string socket_of(const std::string& runtime_dir, const std::string& component);

/// The components in `runtime_dir` that have a control socket, sorted. Those whose directories the caller may not look
/// into are missing. Any thread.
std::vector<std::string> find_components(const std::string& runtime_dir);

/// Find the control socket of the only component that has one, and put its path into `path`. Returns an empty text, or
/// one sentence about why there is none to choose. Any thread.
std::string find_only_socket(const std::string& runtime_dir, std::string& path);

#endif // CTL_SOCKETS_H
