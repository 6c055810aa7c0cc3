#include "check/directive_failures.h"

#include <string>

bool is_loadable(const Placed_Directive& placed)
{
  if (placed.directive.factory == Directive::STATIC_FUNCTION)
    return placed.found.has_static;
  return placed.found.library_error.empty() && placed.found.symbol_error.empty();
}

bool fails(const Placed_Directive& placed, const Loaded_Services& services)
{
  if (placed.directive.verb == Directive::DYNAMIC)
    return !is_loadable(placed);
  return placed.directive.verb != Directive::STREAM && !services.find(placed.directive.name) &&
         !placed.found.has_static;
}

static bool has_module(const Stream& stream, const std::string& name)
{
  const Loaded_Service* const module = stream.services.find(name);
  return module && module->stream == stream.head.name;
}

Stream_Effect fatal_effect(const Directive& directive, const Stream& stream)
{
  if (directive.verb == Directive::STATIC && !has_module(stream, directive.name))
    return Stream_Effect::MODULE_NOT_THERE;
  if (directive.verb == Directive::REMOVE && !stream.services.find(stream.head.name))
    return Stream_Effect::STREAM_NOT_THERE;
  return Stream_Effect::NONE;
}

bool fails_in_stream(const Directive& directive, const Stream& stream)
{
  return directive.verb != Directive::DYNAMIC && fatal_effect(directive, stream) == Stream_Effect::NONE &&
         (directive.verb == Directive::SUSPEND || !has_module(stream, directive.name));
}
