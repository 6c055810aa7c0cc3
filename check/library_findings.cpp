#include "check/library_findings.h"

#include <string>

// A name that ends in what looks like a file's extension is looked for as it is, without "lib" and ".so".
static std::string decoration_hint(const std::string& library)
{
  const std::string name = library.substr(library.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || name.compare(dot, std::string::npos, ".so") == 0 ||
      name.find(".so.") != std::string::npos)
    return "";
  return "; '" + name.substr(dot) + "' is taken for the extension of a file: give its full name";
}

// The problem of the factory, or nothing.
static std::string describe_factory(const Directive& directive, const Availability& found)
{
  const std::string symbol = '\'' + directive.symbol + '\'';
  if (!found.has_static)
    return "no static factory " + symbol;
  if (!found.symbol_error.empty())
    return "factory " + symbol + " of library '" + directive.library + "': " + found.symbol_error;
  if (directive.factory == Directive::OBJECT && found.is_function)
    return symbol + " is a function: without '()' the host takes it for an object and ends";
  if (directive.factory == Directive::FUNCTION && found.is_object)
    return symbol + " is an object: with '()' the host calls it and ends";
  return "";
}

void check_factory(const Placed_Directive& placed, Findings& findings)
{
  const Directive& directive = placed.directive;
  const Availability& found = placed.found;
  const std::string service = "service '" + directive.name + "': ";
  if (!found.library_error.empty())
    findings.push_back(
        {Finding_Kind::LIBRARY_NOT_LOADED, placed.place,
         service + "library '" + directive.library + "': " + found.library_error + decoration_hint(directive.library)});
  else if (const std::string problem = describe_factory(directive, found); !problem.empty())
    findings.push_back({Finding_Kind::MISSING_FACTORY, placed.place, service + problem});
  else if (!found.bind_error.empty())
    findings.push_back({Finding_Kind::MISSING_FUNCTION, placed.place,
                        service + "library '" + directive.library + "': " + found.bind_error +
                            "; the host loads it, and ends with status 127 when it calls this function"});
}
