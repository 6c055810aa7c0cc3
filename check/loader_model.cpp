#include "check/loader_model.h"

#include <algorithm>
#include <map>
#include <string>

namespace
{
// A dynamic service that is there.
struct Service
{
  Place place;
  Directive::Type type;
};

using Services = std::map<std::string, Service>;

// The stream within whose braces directives stand.
struct Stream
{
  const Directive& head;
  const Services before; // the services that were there before the stream
};

using Position = std::vector<Placed_Directive>::const_iterator;

// ---- Failures: the framework counts them and pushes no module after the first one in a source

bool is_loadable(const Placed_Directive& placed)
{
  if (placed.directive.factory == Directive::STATIC_FUNCTION)
    return placed.found.has_static;
  return placed.found.library_error.empty() && placed.found.symbol_error.empty();
}

bool fails(const Placed_Directive& placed, const Services& services)
{
  if (placed.directive.verb == Directive::DYNAMIC)
    return !is_loadable(placed);
  return placed.directive.verb != Directive::STREAM && services.count(placed.directive.name) == 0 &&
         !placed.found.has_static;
}

// The framework follows null pointers where something is missing.
Stream_Effect fatal_effect(const Directive& directive, const Stream& stream)
{
  const bool has_stream = stream.before.count(stream.head.name) != 0;
  const bool has_module = has_stream && stream.before.count(directive.name) != 0;
  if (directive.verb == Directive::STATIC && !has_module)
    return Stream_Effect::MODULE_NOT_THERE;
  if (directive.verb == Directive::REMOVE && !has_stream)
    return Stream_Effect::STREAM_NOT_THERE;
  return Stream_Effect::NONE;
}

// "suspend" looks for the name of the stream instead of the module, and therefore always fails.
bool fails_in_stream(const Directive& directive, const Stream& stream)
{
  return directive.verb != Directive::DYNAMIC && fatal_effect(directive, stream) == Stream_Effect::NONE &&
         (directive.verb == Directive::SUSPEND || stream.before.count(stream.head.name) == 0 ||
          stream.before.count(directive.name) == 0);
}

// ---- Names

void set_name(Loader_Step& step, Services& services)
{
  const Directive& directive = step.placed->directive;
  const auto there = services.find(directive.name);
  const bool is_there = there != services.end();

  if (directive.verb == Directive::DYNAMIC) {
    if (is_there) {
      step.name = Name_Effect::REPLACES;
      step.there = there->second.place;
    }
    services[directive.name] = {step.placed->place, directive.type};
  } else if (directive.verb == Directive::REMOVE)
    // It is in order to remove a service that is not there: a file makes room for a reload in this way, and at the
    // first start there is nothing yet.
    services.erase(directive.name);
  else if (!is_there && !step.placed->found.has_static)
    step.name = Name_Effect::UNKNOWN;
}

// A stream, and a module of one, that is there already stays.
void keep_name(Loader_Step& step, Services& services)
{
  const Directive& directive = step.placed->directive;
  const auto [there, is_new] = services.emplace(directive.name, Service{step.placed->place, directive.type});
  if (is_new)
    return;
  step.name = Name_Effect::STAYS_OUT;
  step.there = there->second.place;
}

// A service of an unknown type counts as right: it is linked statically.
bool is_of_type(const Directive& directive, Directive::Type type, const Services& services)
{
  const auto there = services.find(directive.name);
  return there == services.end() || there->second.type == type;
}

// ---- Streams

// A module is pushed whatever it is and onto whatever it is: the framework does not look.
void push_module(Loader_Step& step, const Stream& stream, Services& services, const Placed_Directive*& failed)
{
  if (stream.head.verb == Directive::STREAM) {
    step.in_stream = Stream_Effect::NEEDS_DYNAMIC;
    return;
  }

  keep_name(step, services);
  if (failed) {
    step.in_stream = Stream_Effect::NOT_PUSHED;
    step.failed = failed->place;
  } else if (fails(*step.placed, services))
    failed = step.placed;
  else if (!is_of_type(stream.head, Directive::STREAM_OBJECT, services))
    step.in_stream = Stream_Effect::STREAM_MISTYPED;
  else if (!is_of_type(step.placed->directive, Directive::MODULE, services))
    step.in_stream = Stream_Effect::MODULE_MISTYPED;
}

Loader_Step simulate_head(const Placed_Directive& placed, bool has_modules, Services& services,
                          const Placed_Directive*& failed)
{
  if (!failed && fails(placed, services))
    failed = &placed;

  Loader_Step step{&placed};
  if (placed.directive.is_cut_off)
    return step;

  if (has_modules && placed.directive.verb == Directive::DYNAMIC)
    keep_name(step, services);
  else
    set_name(step, services);
  return step;
}

// Inside the braces the framework executes a directive that is no module at once, before it makes the stream.
void simulate_stream(Position head, Position end, Services& services, const Placed_Directive*& failed,
                     std::vector<Loader_Step>& steps)
{
  const Stream stream{head->directive, services};
  for (Position i = head + 1; i != end; ++i)
    if (!failed && fails_in_stream(i->directive, stream))
      failed = &*i;

  steps.push_back(simulate_head(*head, true, services, failed));
  for (Position i = head + 1; i != end; ++i) {
    Loader_Step step{&*i, &head->directive};
    if (i->directive.verb == Directive::DYNAMIC)
      push_module(step, stream, services, failed);
    else
      step.in_stream = fatal_effect(i->directive, stream);
    steps.push_back(step);
  }
}

// ---- Sources

void simulate_source(Position begin, Position end, Services& services, std::vector<Loader_Step>& steps)
{
  if (services.count(begin->place.file) != 0) { // the framework takes the service for the file at hand
    steps.push_back({&*begin});
    steps.back().is_source_passed_over = true;
    return;
  }

  const Placed_Directive* failed = nullptr; // the first directive of this source that fails
  for (Position i = begin; i != end;) {
    const Position next = std::find_if(i + 1, end, [](const Placed_Directive& d) { return !d.directive.in_stream; });
    if (next == i + 1)
      steps.push_back(simulate_head(*i, false, services, failed));
    else
      simulate_stream(i, next, services, failed, steps);
    i = next;
  }
}
} // namespace

std::vector<Loader_Step> simulate_loader(const std::vector<Placed_Directive>& directives)
{
  std::vector<Loader_Step> steps;
  Services services; // that are there by now
  for (Position i = directives.begin(); i != directives.end();) {
    const Position next =
        std::find_if(i, directives.end(), [&](const Placed_Directive& d) { return d.source != i->source; });
    simulate_source(i, next, services, steps);
    i = next;
  }
  return steps;
}
