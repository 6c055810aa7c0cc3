#include "check/probe_plan.h"

#include <set>
#include <string>

static bool is_static(const Directive& directive)
{
  return directive.verb != Directive::DYNAMIC || directive.factory == Directive::STATIC_FUNCTION;
}

static Planned_Probe plan_library(const std::vector<Placed_Directive>& directives, const std::string& library)
{
  Planned_Probe probe;
  probe.request.library = library;
  for (std::size_t i = 0; i < directives.size(); ++i) {
    const Directive& directive = directives[i].directive;
    if (is_static(directive) || directive.library != library)
      continue;
    probe.request.symbols.push_back(directive.symbol);
    probe.directives.push_back(i);
  }
  return probe;
}

static void add_static(Planned_Probe& probe, const Directive& directive, std::size_t at)
{
  if (directive.verb == Directive::DYNAMIC)
    probe.request.factories.push_back(directive.symbol);
  else
    probe.request.statics.push_back(directive.name);
  probe.directives.push_back(at);
}

std::vector<Planned_Probe> plan_probes(const std::vector<Placed_Directive>& directives)
{
  std::vector<Planned_Probe> plan;
  std::set<std::string> libraries;
  Planned_Probe statics; // of the directives since the last library that is new
  for (std::size_t i = 0; i < directives.size(); ++i) {
    const Directive& directive = directives[i].directive;
    if (is_static(directive)) {
      add_static(statics, directive, i);
      continue;
    }
    if (!libraries.insert(directive.library).second)
      continue;
    if (!statics.directives.empty())
      plan.push_back(statics);
    statics = {};
    plan.push_back(plan_library(directives, directive.library));
  }
  if (!statics.directives.empty())
    plan.push_back(statics);
  return plan;
}

static void note_result(Placed_Directive& placed, const Library_Result& result)
{
  const Directive& directive = placed.directive;
  if (directive.verb != Directive::DYNAMIC)
    placed.found.has_static = result.missing_statics.count(directive.name) == 0;
  else if (directive.factory == Directive::STATIC_FUNCTION)
    placed.found.has_static = result.errors.count(directive.symbol) == 0;
  else {
    const auto error = result.errors.find(directive.symbol);
    placed.found.library_error = result.error;
    placed.found.bind_error = result.bind_error;
    placed.found.symbol_error = error == result.errors.end() ? "" : error->second;
    placed.found.is_function = result.functions.count(directive.symbol) != 0;
    placed.found.is_object = result.objects.count(directive.symbol) != 0;
  }
}

// A library binds to libraries that are loaded after it too, as long as it calls their functions late enough.
static bool probe_incomplete(std::vector<Planned_Probe>& incomplete, const std::vector<std::string>& loaded,
                             std::vector<Placed_Directive>& directives)
{
  for (Planned_Probe& probe : incomplete) {
    probe.request.loaded.clear();
    for (const std::string& library : loaded)
      if (library != probe.request.library)
        probe.request.loaded.push_back(library);

    const Library_Result result = probe_library(probe.request);
    if (!result.is_probed)
      return false;
    for (const std::size_t at : probe.directives)
      directives[at].found.bind_error = result.bind_error;
  }
  return true;
}

bool run_probes(std::vector<Placed_Directive>& directives)
{
  std::vector<std::string> loaded;
  std::vector<Planned_Probe> incomplete;
  for (Planned_Probe& probe : plan_probes(directives)) {
    probe.request.loaded = loaded;
    const Library_Result result = probe_library(probe.request);
    if (!result.is_probed)
      return false;

    for (const std::size_t at : probe.directives)
      note_result(directives[at], result);
    if (probe.request.library && result.error.empty())
      loaded.push_back(*probe.request.library);
    if (result.error.empty() && !result.bind_error.empty())
      incomplete.push_back(probe);
  }
  return probe_incomplete(incomplete, loaded, directives);
}
