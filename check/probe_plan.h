#ifndef CHECK_PROBE_PLAN_H
#define CHECK_PROBE_PLAN_H

#include "check/library_probe.h"
#include "check/placed_directive.h"

#include <cstddef>
#include <vector>

/// A probe and the directives that its result is about.
struct Planned_Probe
{
  Library_Request request;             ///< without the libraries loaded before it, which are known when it is run
  std::vector<std::size_t> directives; ///< their positions
};

/// The probes that `directives` need, in the order in which they have to be run. Each library is tried once, with all
/// symbols that are wanted of it. Between two libraries, the static services and factories are asked for that the
/// directives between them name.
std::vector<Planned_Probe> plan_probes(const std::vector<Placed_Directive>& directives);

/// Run the probes of `directives`, each one after the libraries before it that can be loaded, since their symbols are
/// visible to it, and note in each directive what is found. False when there is no process to try a library in. The
/// calling process must have no other thread. Logs nothing.
bool run_probes(std::vector<Placed_Directive>& directives);

#endif // CHECK_PROBE_PLAN_H
