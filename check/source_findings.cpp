#include "check/source_findings.h"

#include "starter/configuration.h"
#include "starter/open_service_config.h"

#include <cerrno>
#include <cstring>
#include <string>

static void check_directory(const std::string& path, Findings& findings)
{
  Directory_Listing listing;
  if (!list_directory(path, listing))
    return; // it is a file, or nothing at all

  if (listing.files.empty())
    findings.push_back(
        {Finding_Kind::EMPTY_DIRECTORY, {path, 0}, "no regular file in it has a name that ends in .conf"});
  for (const std::string& other : listing.misnamed)
    findings.push_back({Finding_Kind::MISNAMED_FILE, {other, 0}, "is passed over: its name does not end in .conf"});
  for (const std::string& other : listing.passed_over)
    findings.push_back(
        {Finding_Kind::UNREADABLE_FILE, {other, 0}, "is passed over: it is no regular file, and leads to none"});
}

void check_directories(int argc, char** argv, Findings& findings)
{
  Service_Config_Get_Opt opt(argc, argv, true);
  for (int c; (c = opt()) != -1;)
    if (c == 'f')
      check_directory(opt.opt_arg(), findings);
}

static std::string describe_error(const Read_Source& read)
{
  std::string message = std::string("cannot be read: ") + std::strerror(read.error);
  if (read.is_left_out)
    message += "; the host leaves it out, with an error record, and goes on";
  else if (!read.source.is_default_file)
    message += "; no later -f and no -S is processed";
  return message;
}

// A device is empty on purpose.
static bool is_empty(const Read_Source& read)
{
  return read.source.is_file && read.error == 0 && !read.is_unlooked && !read.is_repeated &&
         read.conf.directives.empty() && read.conf.errors.empty() && is_regular_file(read.source.text.c_str());
}

static void check_source(const Read_Source& read, Findings& findings)
{
  const Place place = place_of(read.source, 0);
  const bool is_usual = read.source.is_default_file && read.error == ENOENT; // most hosts have no default file
  if (read.error != 0 && !is_usual)
    findings.push_back({Finding_Kind::UNREADABLE_FILE, place, describe_error(read)});
  if (is_empty(read))
    findings.push_back({Finding_Kind::EMPTY_FILE, place, "has no directive in it, so nothing is loaded from it"});
  if (read.is_unlooked)
    findings.push_back({Finding_Kind::UNREADABLE_FILE, place,
                        "is no regular file: the host reads it, and the checker does not look into it"});
  if (read.is_repeated)
    findings.push_back(
        {Finding_Kind::REPEATED_FILE, place, "is processed again, so that its services are replaced by new ones"});
  for (const Syntax_Error& error : read.conf.errors)
    if (!error.is_follow_on)
      findings.push_back({Finding_Kind::SYNTAX_ERROR, place_of(read.source, error.line), error.message});
}

void check_sources(const std::vector<Read_Source>& sources, Findings& findings)
{
  for (const Read_Source& read : sources)
    check_source(read, findings);
}
