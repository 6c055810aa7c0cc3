#include "check/configurator_findings.h"

#include "check/configurator.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

static std::string describe(const Configurator_Option& option)
{
  return std::string("'-") + option.first + (option.second.empty() ? "" : ' ' + option.second) + '\'';
}

static std::string describe_loss(const Configurator_Option& option)
{
  return describe(option) + " does not get to the configurator: " +
         (std::getenv("POSIXLY_CORRECT") ? "POSIXLY_CORRECT is set, and a value before it ends the options"
                                         : "a value before it is taken for an option");
}

// The options that are taken are those that are given, unless values look like options.
void check_configurator_options(int argc, char** argv, Findings& findings)
{
  std::vector<Configurator_Option> taken = taken_process_options(argc, argv);
  for (const Configurator_Option& option : taken_service_options(argc, argv))
    taken.push_back(option);
  std::vector<Configurator_Option> lost;
  for (const Configurator_Option& option : given_options(argc, argv))
    if (const auto found = std::find(taken.begin(), taken.end(), option); found != taken.end())
      taken.erase(found);
    else
      lost.push_back(option);

  for (const Configurator_Option& option : taken)
    findings.push_back(
        {Finding_Kind::READ_TWICE, {}, "the configurator takes " + describe(option) + " out of a value"});
  for (const Configurator_Option& option : lost)
    findings.push_back({Finding_Kind::IGNORED_ARGUMENT, {}, describe_loss(option)});
}
