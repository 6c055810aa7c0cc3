#include "check/source_reader.h"

#include "check/svc_conf_parser.h"
#include "starter/configuration.h"
#include "starter/open_service_config.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

bool list_directory(const std::string& path, Directory_Listing& listing)
{
  if (!find_service_configs(path.c_str(), listing.files))
    return false;

  std::error_code ignored; // the directory has just been read
  for (const fs::directory_entry& entry : fs::directory_iterator(path, ignored))
    if (is_file_extension(entry.path().c_str(), "conf") && !is_regular_file(entry.path().c_str()))
      listing.passed_over.insert(entry.path());
  return true;
}

// The content of a file, or false with errno.
static bool read_file(const std::string& path, std::string& content)
{
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
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

static Read_Source read_source(const Source& source, std::set<std::string>& files)
{
  Read_Source result;
  result.source = source;
  std::string content;
  if (!source.is_file)
    content = source.text;
  else if (!read_file(source.text, content))
    result.error = errno;
  else
    result.is_repeated = !files.insert(source.text).second;

  if (result.error == 0 && !result.is_repeated)
    result.conf = parse_svc_conf(content);
  return result;
}

// The configurator does without the default file, unless that is a directory.
static bool stops_configurator(const Read_Source& read)
{
  return read.error != 0 && (!read.source.is_default_file || read.error == EISDIR);
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
