#include "check/loader_model.h"

#include "check/directive_failures.h"
#include "check/loaded_services.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

bool ends_host(const Loader_Step& step)
{
  if (step.breaks != Stream_Break::NONE)
    return true;
  switch (step.in_stream) {
  case Stream_Effect::STREAM_MISTYPED:
  case Stream_Effect::MODULE_MISTYPED:
  case Stream_Effect::MODULE_NOT_THERE:
  case Stream_Effect::STREAM_NOT_THERE:
    return true;
  default:
    return false;
  }
}

namespace
{
using Position = std::vector<Placed_Directive>::const_iterator;

// ---- Names

void note_break(Loader_Step& step, Stream_Break kind, const std::string& stream)
{
  if (stream.empty())
    return;
  step.breaks = kind;
  step.broken_stream = stream;
}

void set_name(Loader_Step& step, Loaded_Services& services)
{
  const Directive& directive = step.placed->directive;
  const Loaded_Service* const there = services.find(directive.name);

  if (directive.verb == Directive::DYNAMIC) {
    if (there) {
      step.name = Name_Effect::REPLACES;
      step.there = there->place;
    }
    note_break(step, Stream_Break::TAKEN_AWAY, services.load(directive.name, {step.placed->place, directive.type}));
  } else if (directive.verb == Directive::REMOVE)
    // It is in order to remove a service that is not there: a file makes room for a reload in this way, and at the
    // first start there is nothing yet.
    note_break(step, Stream_Break::TAKEN_AWAY, services.remove(directive.name));
  else if (!there && !step.placed->found.has_static)
    step.name = Name_Effect::UNKNOWN;
}

// A stream, and a module of one, that is there already stays.
void keep_name(Loader_Step& step, Loaded_Services& services)
{
  const Directive& directive = step.placed->directive;
  if (services.keep(directive.name, {step.placed->place, directive.type}))
    return;
  step.name = Name_Effect::STAYS_OUT;
  step.there = services.find(directive.name)->place;
}

// A service of an unknown type counts as right: it is linked statically.
bool is_of_type(const Directive& directive, Directive::Type type, const Loaded_Services& services)
{
  const Loaded_Service* const there = services.find(directive.name);
  return !there || there->type == type;
}

// ---- Streams

// Behind a failure in its stream, a module is still loaded. Behind one before its stream it is not.
void set_not_pushed(Loader_Step& step, const Placed_Directive& failed)
{
  step.in_stream = Stream_Effect::NOT_PUSHED;
  step.failed = failed.place;
}

// A module is pushed whatever it is and onto whatever it is: the framework does not look.
void push_module(Loader_Step& step, const Stream& stream, Loaded_Services& services, const Placed_Directive*& failed)
{
  if (stream.head.verb == Directive::STREAM) {
    step.in_stream = Stream_Effect::NEEDS_DYNAMIC;
    return;
  }

  keep_name(step, services);
  if (failed)
    set_not_pushed(step, *failed);
  else if (fails(*step.placed, services))
    failed = step.placed;
  else if (!is_of_type(stream.head, Directive::STREAM_OBJECT, services))
    step.in_stream = Stream_Effect::STREAM_MISTYPED;
  else if (!is_of_type(step.placed->directive, Directive::MODULE, services))
    step.in_stream = Stream_Effect::MODULE_MISTYPED;
  else
    note_break(step, Stream_Break::PUSHED_AGAIN, services.push(step.placed->directive.name, stream.head.name));
}

// Inside the braces the framework executes a directive that is no module at once, before it makes the stream. A static
// module is one that the stream has, so it is pushed again.
void execute_at_once(Loader_Step& step, const Stream& stream, Loaded_Services& services)
{
  const Directive& directive = step.placed->directive;
  step.in_stream = fatal_effect(directive, stream);
  if (step.in_stream != Stream_Effect::NONE)
    return;
  if (directive.verb == Directive::STATIC)
    note_break(step, Stream_Break::PUSHED_AGAIN, services.push(directive.name, stream.head.name));
  else if (directive.verb == Directive::REMOVE)
    services.take_off(directive.name, stream.head.name);
}

Loader_Step simulate_head(const Placed_Directive& placed, bool has_modules, Loaded_Services& services,
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

// The framework goes through the directives in the braces from the last one to the first, and stops at one that is
// neither "dynamic" nor "static".
Position first_module(Position head, Position end)
{
  const auto reversed_end = std::make_reverse_iterator(head + 1);
  return std::find_if(std::make_reverse_iterator(end), reversed_end,
                      [](const Placed_Directive& d) {
                        return d.directive.verb != Directive::DYNAMIC && d.directive.verb != Directive::STATIC;
                      })
      .base();
}

void simulate_stream(Position head, Position end, Loaded_Services& services, const Placed_Directive*& failed,
                     std::vector<Loader_Step>& steps)
{
  const Stream stream{head->directive, services};
  const bool is_there = services.find(head->directive.name);
  std::vector<Loader_Step> inner;
  for (Position i = head + 1; i != end; ++i) {
    inner.push_back({&*i, &head->directive});
    if (i->directive.verb == Directive::DYNAMIC)
      continue;
    if (!failed && fails_in_stream(i->directive, stream))
      failed = &*i;
    execute_at_once(inner.back(), stream, services);
  }

  steps.push_back(simulate_head(*head, true, services, failed));
  if (steps.back().name == Name_Effect::UNKNOWN && std::any_of(inner.begin(), inner.end(), ends_host))
    steps.back().name = Name_Effect::NONE; // the host ends for the same reason
  const Placed_Directive* const given_up = failed;
  const std::ptrdiff_t first = first_module(head, end) - head;
  for (Loader_Step& step : inner) {
    if (step.placed->directive.verb != Directive::DYNAMIC)
      continue;
    if (given_up && head->directive.verb != Directive::STREAM)
      set_not_pushed(step, *given_up);
    else if (step.placed - &*head < first && is_there && head->directive.verb != Directive::STREAM)
      step.in_stream = Stream_Effect::CUT_OFF;
    else
      push_module(step, stream, services, failed);
  }
  steps.insert(steps.end(), inner.begin(), inner.end());
}

// ---- Sources

void simulate_source(Position begin, Position end, Loaded_Services& services, std::vector<Loader_Step>& steps)
{
  if (services.find(begin->place.file)) { // the framework takes the service for the file at hand
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

static void simulate_sources(const std::vector<Placed_Directive>& directives, bool is_reload, Loaded_Services& services,
                             std::vector<Loader_Step>& steps)
{
  for (Position i = directives.begin(); i != directives.end();) {
    const Position next =
        std::find_if(i, directives.end(), [&](const Placed_Directive& d) { return d.source != i->source; });
    if (!is_reload || !i->place.file.empty()) // a hang-up repeats no directive of -S
      simulate_source(i, next, services, steps);
    i = next;
  }
}

// Note the streams that have been loaded, are still there and have no module. Modules that are not pushed have a reason
// of their own.
static void note_bare_streams(const Loaded_Services& services, std::vector<Loader_Step>& steps)
{
  for (Loader_Step& step : steps) {
    const Directive& directive = step.placed->directive;
    const Loaded_Service* const service = services.find(directive.name);
    if (directive.verb != Directive::DYNAMIC || directive.type != Directive::STREAM_OBJECT || step.stream ||
        directive.has_stray_braces || step.name == Name_Effect::STAYS_OUT || !service ||
        service->place.line != step.placed->place.line || service->place.file != step.placed->place.file ||
        !is_loadable(*step.placed))
      continue;
    step.is_bare_stream = std::none_of(steps.begin(), steps.end(), [&directive](const Loader_Step& other) {
      return other.stream && other.stream->name == directive.name;
    });
  }
}

std::vector<Loader_Step> simulate_loader(const std::vector<Placed_Directive>& directives)
{
  std::vector<Loader_Step> steps;
  Loaded_Services services; // that are there by now
  simulate_sources(directives, false, services, steps);
  note_bare_streams(services, steps);
  if (std::any_of(steps.begin(), steps.end(), ends_host))
    return steps; // a hang-up makes nothing worse

  std::vector<Loader_Step> reload;
  simulate_sources(directives, true, services, reload);
  for (Loader_Step& step : reload)
    if (step.breaks != Stream_Break::NONE) {
      step.is_reload = true;
      steps.push_back(step);
    }
  return steps;
}
