#include "check/services.h"

#include "check/configurator.h"
#include "check/configurator_findings.h"
#include "check/loader_model.h"
#include "check/meant_options.h"
#include "check/probe_plan.h"
#include "check/service_findings.h"
#include "check/signal_findings.h"
#include "check/source_findings.h"
#include "check/source_reader.h"
#include "starter/open_service_config.h"
#include "starter/options.h"

#include <set>
#include <string>
#include <vector>

#include <unistd.h>

// A process that goes to the background moves to this directory, from where it looks up relative paths.
static bool move_to_background_directory()
{
  return chdir("/") == 0;
}

static void count(const std::vector<Read_Source>& sources, const std::vector<Placed_Directive>& directives,
                  Checked_Configuration& checked)
{
  for (const Read_Source& read : sources)
    checked.files_read += read.source.is_file && read.error == 0 && !read.is_unlooked && !read.is_repeated ? 1 : 0;
  std::set<std::string> services;
  for (const Placed_Directive& placed : directives)
    if (placed.directive.verb == Directive::DYNAMIC)
      services.insert(placed.directive.name);
  checked.directives = directives.size();
  checked.services = services.size();
}

// `argv` holds the `argc` arguments that the configurator is opened with.
static bool check_configuration(const std::vector<Meant_Option>& meant, int argc, char** argv, Findings& findings,
                                Checked_Configuration& checked)
{
  check_configurator_options(meant, argc, argv, findings);
  check_signals(argc, argv, findings);
  if (goes_to_background(argc, argv) && !move_to_background_directory())
    return false;

  const std::vector<Source> given = configurator_sources(argc, argv);
  checked.files = list_files(given);
  const std::vector<Read_Source> sources = read_sources(given);
  check_sources(sources, findings);

  std::vector<Placed_Directive> directives = place_directives(sources);
  if (!run_probes(directives))
    return false;
  count(sources, directives, checked);
  check_steps(simulate_loader(directives), findings);
  return true;
}

bool list_configuration_files(int argc, char** argv, File_List& files)
{
  if (parse_options(argc, argv).background && !move_to_background_directory())
    return false;

  return open_service_config(argc, argv, true, [&files](int args_count, char** args) {
    if (!args || (goes_to_background(args_count, args) && !move_to_background_directory()))
      return false;
    files = list_files(configurator_sources(args_count, args));
    return true;
  });
}

bool check_services(int argc, char** argv, Findings& findings, Checked_Configuration& checked)
{
  if (parse_options(argc, argv).background && !move_to_background_directory())
    return false;

  check_directories(argc, argv, findings);
  const std::vector<Meant_Option> meant = meant_options(argc, argv);
  return open_service_config(argc, argv, true, [&](int args_count, char** args) {
    return args && check_configuration(meant, args_count, args, findings, checked);
  });
}
