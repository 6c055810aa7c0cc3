#include "companions/control/configuration.h"

#include "check/svc_conf_parser.h"

#include <ace/Service_Config.h>
#include <ace/Service_Gestalt.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

// ---- The sources

// Grants a look at the files and directives of the configurator.
class Configured_Sources : private ACE_Service_Gestalt
{
public:
  static std::vector<std::string> files(ACE_Service_Gestalt& gestalt)
  {
    return texts_of(gestalt.*(&Configured_Sources::svc_conf_file_queue_));
  }

  static std::vector<std::string> directives(ACE_Service_Gestalt& gestalt)
  {
    return texts_of(gestalt.*(&Configured_Sources::svc_queue_));
  }

private:
  static std::vector<std::string> texts_of(ACE_SVC_QUEUE* queue);
};

std::vector<std::string> Configured_Sources::texts_of(ACE_SVC_QUEUE* queue)
{
  std::vector<std::string> texts;
  ACE_TString* text = nullptr;
  if (queue)
    for (ACE_SVC_QUEUE_ITERATOR i(*queue); i.next(text) != 0; i.advance())
      texts.push_back(text->c_str());
  return texts;
}

void Configuration::remember_sources()
{
  if (!files_.empty() || !directives_.empty())
    return;

  ACE_Service_Gestalt& gestalt = *ACE_Service_Config::current();
  files_ = Configured_Sources::files(gestalt);
  directives_ = Configured_Sources::directives(gestalt);
}

// ---- The services

// Each text is on a line of its own, as it goes up to the last quote of the line.
static std::string make_directive(const Directive& directive)
{
  static const char* const types[] = {"Service_Object", "Module", "STREAM"};
  static const char* const ends[] = {"", "()", "()"};

  std::string text = "dynamic " + directive.name + ' ' + types[directive.type] + " *\n";
  if (directive.factory != Directive::STATIC_FUNCTION)
    text += '"' + directive.library + "\"\n";
  text += ':' + directive.symbol + ends[directive.factory];
  if (directive.is_inactive)
    text += " inactive";
  if (directive.has_parameters)
    text += "\n\"" + directive.parameters + '"';
  return text + '\n';
}

static void set_active(Wanted_Services& services, const std::string& name, bool is_active)
{
  if (const auto found = services.find(name); found != services.end())
    found->second.is_active = is_active;
}

// A directive within the braces of a stream that loads nothing is about the module in the stream.
static void apply(const Directive& directive, Wanted_Services& services)
{
  static const char* const types[] = {"service", "module", "stream"};

  switch (directive.verb) {
  case Directive::DYNAMIC:
    services[directive.name] = {
        types[directive.type], !directive.is_inactive, directive.library,
        directive.in_stream || directive.type != Directive::SERVICE_OBJECT ? std::string() : make_directive(directive)};
    break;
  case Directive::STATIC:
    services[directive.name] = {"service", true, "", ""};
    break;
  case Directive::SUSPEND:
  case Directive::RESUME:
    if (!directive.in_stream)
      set_active(services, directive.name, directive.verb == Directive::RESUME);
    break;
  case Directive::REMOVE:
    if (!directive.in_stream)
      services.erase(directive.name);
    break;
  case Directive::STREAM: // of a stream that another directive loads
    break;
  }
}

static void apply_all(const std::string& text, Wanted_Services& services)
{
  for (const Directive& directive : parse_svc_conf(text).directives)
    apply(directive, services);
}

Wanted_Services Configuration::read() const
{
  Wanted_Services services;
  for (const std::string& path : files_) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
      continue; // what is read from a pipe is gone
    std::ifstream file(path);
    if (!file)
      break; // the framework reads no further either
    std::ostringstream text;
    text << file.rdbuf();
    apply_all(text.str(), services);
  }
  for (const std::string& directive : directives_)
    apply_all(directive, services);
  return services;
}

// ---- A directive that a client gives

std::vector<std::string> read_load_directive(const std::string& text, std::string& reason)
{
  const Svc_Conf conf = parse_svc_conf(text);
  if (!conf.errors.empty()) {
    reason = conf.errors[0].message;
    return {};
  }

  std::vector<std::string> names;
  for (const Directive& directive : conf.directives)
    if (!directive.in_stream && !names.empty())
      reason = "there is more than one directive";
    else if (directive.verb != Directive::DYNAMIC && directive.verb != Directive::STATIC)
      reason = "the directive does not load a service";
    else
      names.push_back(directive.name);
  if (names.empty() && reason.empty())
    reason = "there is no directive";
  return reason.empty() ? names : std::vector<std::string>();
}
