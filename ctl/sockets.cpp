#include "ctl/sockets.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

bool is_component_name(const std::string& name)
{
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

std::string socket_of(const std::string& runtime_dir, const std::string& component)
{
  return runtime_dir + '/' + component + "/control.socket";
}

std::vector<std::string> find_components(const std::string& runtime_dir)
{
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator i(runtime_dir, error), end; !error && i != end; i.increment(error)) {
    const std::string name = i->path().filename();
    std::error_code ignored; // as of a directory that the caller may not look into
    if (fs::is_socket(socket_of(runtime_dir, name), ignored))
      names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string find_only_socket(const std::string& runtime_dir, std::string& path)
{
  const std::vector<std::string> names = find_components(runtime_dir);
  if (names.size() == 1) {
    path = socket_of(runtime_dir, names[0]);
    return "";
  }
  if (names.empty())
    return "no component with a control socket is to be seen in " + runtime_dir + "; -s names another socket";

  std::string list;
  for (const std::string& name : names)
    list += (list.empty() ? "" : ", ") + name;
  return "several components run: choose one with -c: " + list;
}
