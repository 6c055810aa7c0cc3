#include "check/source_reader.h"

#include "check/near_names.h"
#include "check/svc_conf_parser.h"
#include "starter/configuration.h"
#include "starter/open_service_config.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

bool list_directory(const std::string& path, Directory_Listing& listing)
{
  if (!find_service_configs(path.c_str(), listing.files))
    return false;

  std::error_code ignored; // the directory has just been read
  for (const fs::directory_entry& entry : fs::directory_iterator(path, ignored)) {
    const bool is_regular = is_regular_file(entry.path().c_str());
    if (is_regular && is_almost_conf(entry.path().filename()))
      listing.misnamed.insert(entry.path());
    else if (!is_regular && is_file_extension(entry.path().c_str(), "conf"))
      listing.passed_over.insert(entry.path());
  }
  return true;
}

// The content of a regular file, or false with errno. A pipe that has just taken its place is not waited for.
static bool read_file(const std::string& path, std::string& content)
{
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd == -1)
    return false;

  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))
    content.append(buf, n > 0 ? static_cast<std::size_t>(n) : 0);

  const int error = errno;
  close(fd);
  errno = error;
  return n == 0;
}

// The usual stand-in for an empty file can be looked into.
static bool is_null_device(const std::string& path)
{
  struct stat file, null;
  return stat(path.c_str(), &file) == 0 && stat("/dev/null", &null) == 0 && S_ISCHR(file.st_mode) &&
         file.st_rdev == null.st_rdev;
}

// The content of the file of `read`, as far as the host would read it.
static std::string look_into_file(Read_Source& read)
{
  const std::string& path = read.source.text;
  std::string content;
  const Content kind = look_into(path.c_str());
  read.is_left_out = kind == Content::UNREADABLE;
  if (kind == Content::READABLE && !is_regular_file(path.c_str()))
    read.is_unlooked = !is_null_device(path);
  else if (kind != Content::READABLE || !read_file(path, content))
    read.error = errno;
  return content;
}

static Read_Source read_source(const Source& source, std::set<std::string>& files)
{
  Read_Source result;
  result.source = source;
  const std::string content = source.is_file ? look_into_file(result) : source.text;
  result.is_repeated = source.is_file && result.error == 0 && !files.insert(source.text).second;
  if (result.error == 0 && !result.is_repeated)
    result.conf = parse_svc_conf(content);
  return result;
}

// The configurator does without the default file, and the host keeps from it what cannot be read.
static bool stops_configurator(const Read_Source& read)
{
  return read.error != 0 && !read.is_left_out && !read.source.is_default_file;
}

std::vector<Read_Source> read_sources(const std::vector<Source>& sources)
{
  std::vector<Read_Source> result;
  std::set<std::string> files; // the paths of those that have been read
  for (const Source& source : sources) {
    result.push_back(read_source(source, files));
    if (stops_configurator(result.back()))
      break;
  }
  return result;
}

Place place_of(const Source& source, int line)
{
  return source.is_file ? Place{source.text, line} : Place{};
}

std::vector<Placed_Directive> place_directives(const std::vector<Read_Source>& sources)
{
  std::vector<Placed_Directive> directives;
  for (std::size_t i = 0; i < sources.size(); ++i)
    for (const Directive& directive : sources[i].conf.directives)
      directives.push_back({directive, place_of(sources[i].source, directive.line), i, {}});
  return directives;
}
