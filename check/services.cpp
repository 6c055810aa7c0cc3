#include "check/services.h"

#include "check/configurator.h"
#include "check/configurator_findings.h"
#include "check/library_probe.h"
#include "check/signal_findings.h"
#include "check/substitution.h"
#include "check/svc_conf_parser.h"
#include "starter/configuration.h"
#include "starter/open_service_config.h"
#include "starter/options.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
// A dynamic service that is there.
struct Service
{
  Place place;
  Directive::Type type;
};

const char HOST_ENDS[] = "the host ends here, with a record of a fault: ";

struct Placed_Directive
{
  Directive directive;
  Place place;
  std::size_t source;     // its number: a file or a directive of -S
  bool has_static = true; // the static service or factory that it may name is there when its turn comes
};

// The content of a file, or false with errno.
bool read_file(const std::string& path, std::string& content)
{
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd == -1)
    return false;

  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))
    content.append(buf, n > 0 ? static_cast<std::size_t>(n) : 0);

  const int error = errno;
  close(fd);
  errno = error;
  return n == 0;
}

// What the host passes over in a directory without a word.
void check_directory(const std::string& path, Findings& findings)
{
  std::set<std::string> files;
  if (!find_service_configs(path.c_str(), files))
    return; // it is a file, or nothing at all
  if (files.empty())
    findings.push_back(
        {Finding_Kind::EMPTY_DIRECTORY, {path, 0}, "no regular file in it has a name that ends in .conf"});

  std::set<std::string> others;
  std::error_code ignored; // it has just been read
  for (const fs::directory_entry& entry : fs::directory_iterator(path, ignored))
    if (is_file_extension(entry.path().c_str(), "conf") && !is_regular_file(entry.path().c_str()))
      others.insert(entry.path());
  for (const std::string& other : others)
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

class Checker
{
public:
  explicit Checker(Findings& findings) : findings_(findings) {}

  /// Read the files and directives; false when the configurator would stop after this one.
  bool read(const Source& source);

  /// Look at what has been read. False when that is not possible.
  bool check();

private:
  bool read_source_file(const Source& source);
  void add_text(const std::string& text, const std::string& file);
  void add(const Place& place, Finding_Kind kind, const std::string& message);

  bool probe_libraries();
  bool probe_statics(std::size_t begin, std::size_t end);
  void check_factory(const Placed_Directive& placed);
  void check_parameters(const Placed_Directive& placed);
  void check_name(const Placed_Directive& placed);
  void check_kept_name(const Placed_Directive& placed);
  bool is_loadable(const Placed_Directive& placed) const;
  bool fails(const Placed_Directive& placed) const;
  bool fails_in_stream(const Directive& directive, const Directive& stream) const;
  bool is_fatal_in_stream(const Directive& directive, const Directive& stream) const;
  bool is_of_type(const Directive& directive, Directive::Type type) const;
  void begin_stream(std::size_t head);
  void check_operation(const Placed_Directive& placed, const Directive& stream);
  void check_module(const Placed_Directive& placed, const Directive& stream);
  void check_directive(const Placed_Directive& placed, bool has_modules);

  Findings& findings_;
  std::set<std::string> files_;
  std::vector<Placed_Directive> directives_;
  std::vector<std::string> loaded_; // libraries that can be, in order
  std::map<std::string, Library_Result> libraries_;
  std::size_t sources_ = 0;
  const Placed_Directive* failed_ = nullptr;       // the first one of the source at hand that does
  std::map<std::string, Service> services_;        // that are there by now
  std::map<std::string, Service> services_before_; // that were there before the stream at hand
};

void Checker::add(const Place& place, Finding_Kind kind, const std::string& message)
{
  findings_.push_back({kind, place, message});
}

void Checker::add_text(const std::string& text, const std::string& file)
{
  const bool is_file = !file.empty();
  const Svc_Conf conf = parse_svc_conf(text);
  for (const Syntax_Error& error : conf.errors)
    add({file, is_file ? error.line : 0}, Finding_Kind::SYNTAX_ERROR, error.message);
  for (const Directive& directive : conf.directives)
    directives_.push_back({directive, {file, is_file ? directive.line : 0}, sources_});
  ++sources_;
}

bool Checker::read_source_file(const Source& source)
{
  std::string content;
  if (!read_file(source.text, content)) {
    const int error = errno;
    if (source.is_default_file && error == ENOENT)
      return true; // which is usual
    std::string message = std::string("cannot be read: ") + std::strerror(error);
    if (error == EISDIR)
      message += "; the host ends here, with status 2";
    else if (!source.is_default_file)
      message += "; no later -f and no -S is processed";
    add({source.text, 0}, Finding_Kind::UNREADABLE_FILE, message);
    return source.is_default_file && error != EISDIR;
  }

  if (!files_.insert(source.text).second) {
    add({source.text, 0}, Finding_Kind::REPEATED_FILE,
        "is processed again, so that its services are replaced by new ones");
    return true;
  }
  add_text(content, source.text);
  return true;
}

bool Checker::read(const Source& source)
{
  if (source.is_file)
    return read_source_file(source);
  add_text(source.text, "");
  return true;
}

// Every library once, with all that is wanted of it, after those that stand before it: their symbols are its own too.
bool Checker::probe_libraries()
{
  std::map<std::string, std::vector<std::string>> symbols;
  for (const Placed_Directive& placed : directives_)
    if (!placed.directive.library.empty())
      symbols[placed.directive.library].push_back(placed.directive.symbol);

  std::size_t begin = 0; // of those that the libraries loaded so far have a say in
  for (std::size_t i = 0; i < directives_.size(); ++i) {
    const std::string& library = directives_[i].directive.library;
    if (library.empty() || libraries_.count(library) != 0)
      continue;

    const Library_Result result = probe_library({loaded_, library, symbols[library], {}, {}});
    if (!result.is_probed || !probe_statics(begin, i))
      return false;
    begin = i;
    libraries_[library] = result;
    if (result.error.empty())
      loaded_.push_back(library);
  }
  return probe_statics(begin, directives_.size());
}

bool Checker::probe_statics(std::size_t begin, std::size_t end)
{
  Library_Request request;
  request.loaded = loaded_;
  for (std::size_t i = begin; i < end; ++i) {
    const Directive& directive = directives_[i].directive;
    if (directive.verb != Directive::DYNAMIC)
      request.statics.push_back(directive.name);
    else if (directive.factory == Directive::STATIC_FUNCTION)
      request.factories.push_back(directive.symbol);
  }
  if (request.statics.empty() && request.factories.empty())
    return true;

  const Library_Result result = probe_library(request);
  for (std::size_t i = begin; i < end; ++i) {
    const Directive& directive = directives_[i].directive;
    directives_[i].has_static = directive.verb == Directive::DYNAMIC
                                    ? result.errors.count(directive.symbol) == 0
                                    : result.missing_statics.count(directive.name) == 0;
  }
  return result.is_probed;
}

// A name that ends in what looks like a file's extension is looked for as it is, without "lib" and ".so".
std::string decoration_hint(const std::string& library)
{
  const std::string name = library.substr(library.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || name.compare(dot, std::string::npos, ".so") == 0 ||
      name.find(".so.") != std::string::npos)
    return "";
  return "; '" + name.substr(dot) + "' is taken for the extension of a file: give its full name";
}

void Checker::check_factory(const Placed_Directive& placed)
{
  const Directive& directive = placed.directive;
  if (directive.factory == Directive::STATIC_FUNCTION) {
    if (!placed.has_static)
      add(placed.place, Finding_Kind::MISSING_FACTORY,
          "service '" + directive.name + "': no static factory '" + directive.symbol + '\'');
    return;
  }

  const Library_Result& result = libraries_.at(directive.library);
  const std::string service = "service '" + directive.name + "': ";
  if (!result.error.empty())
    add(placed.place, Finding_Kind::LIBRARY_NOT_LOADED,
        service + "library '" + directive.library + "': " + result.error + decoration_hint(directive.library));
  else if (const auto error = result.errors.find(directive.symbol); error != result.errors.end())
    add(placed.place, Finding_Kind::MISSING_FACTORY,
        service + "factory '" + directive.symbol + "' of library '" + directive.library + "': " + error->second);
  else if (directive.factory == Directive::OBJECT && result.functions.count(directive.symbol) != 0)
    add(placed.place, Finding_Kind::MISSING_FACTORY,
        service + '\'' + directive.symbol + "' is a function: without '()' the host takes it for an object and ends");
  else if (directive.factory == Directive::FUNCTION && result.objects.count(directive.symbol) != 0)
    add(placed.place, Finding_Kind::MISSING_FACTORY,
        service + '\'' + directive.symbol + "' is an object: with '()' the host calls it and ends");
}

void Checker::check_parameters(const Placed_Directive& placed)
{
  if (const std::string problem = check_left_out(placed.directive.parameters); !problem.empty())
    add(placed.place, Finding_Kind::ALTERED_VALUE, "service '" + placed.directive.name + "', parameters: " + problem);
  for (const std::string& word : split_parameters(placed.directive.parameters)) {
    const std::string what = "service '" + placed.directive.name + "', parameter '" + word + "': ";
    for (const std::string& problem : check_variables(word))
      add(placed.place, Finding_Kind::VARIABLE_NOT_SET, what + problem);
  }
}

std::string describe(const Place& place)
{
  if (place.file.empty())
    return "the command line";
  return place.file + ':' + std::to_string(place.line);
}

void Checker::check_name(const Placed_Directive& placed)
{
  const Directive& directive = placed.directive;
  const auto there = services_.find(directive.name);

  if (directive.verb == Directive::DYNAMIC) {
    if (there != services_.end())
      add(placed.place, Finding_Kind::DUPLICATE_SERVICE,
          "service '" + directive.name + "' takes the place of the one in " + describe(there->second.place));
    services_[directive.name] = {placed.place, directive.type};
    return;
  }

  // Removing what is not there is how a file makes room for a reload: at the first start there is nothing yet.
  if (directive.verb == Directive::REMOVE) {
    if (there != services_.end())
      services_.erase(there);
    return;
  }
  if (there == services_.end() && !placed.has_static)
    add(placed.place, Finding_Kind::UNKNOWN_SERVICE, "there is no service '" + directive.name + "' by then");
}

// A stream, and a module of one, that is there already stays.
void Checker::check_kept_name(const Placed_Directive& placed)
{
  const Directive& directive = placed.directive;
  const auto [there, is_new] = services_.emplace(directive.name, Service{placed.place, directive.type});
  if (!is_new)
    add(placed.place, Finding_Kind::DUPLICATE_SERVICE,
        "service '" + directive.name + "' is not loaded: the one in " + describe(there->second.place) + " stays");
}

bool Checker::is_loadable(const Placed_Directive& placed) const
{
  const Directive& directive = placed.directive;
  if (directive.factory == Directive::STATIC_FUNCTION)
    return placed.has_static;

  const Library_Result& result = libraries_.at(directive.library);
  return result.error.empty() && result.errors.count(directive.symbol) == 0;
}

bool Checker::fails(const Placed_Directive& placed) const
{
  if (placed.directive.verb == Directive::DYNAMIC)
    return !is_loadable(placed);
  return placed.directive.verb != Directive::STREAM && services_.count(placed.directive.name) == 0 &&
         !placed.has_static;
}

bool Checker::is_fatal_in_stream(const Directive& directive, const Directive& stream) const
{
  const bool has_stream = services_before_.count(stream.name) != 0;
  if (directive.verb == Directive::STATIC)
    return !has_stream || services_before_.count(directive.name) == 0;
  return directive.verb == Directive::REMOVE && !has_stream;
}

// What "suspend" looks for is not the module but the name of the stream.
bool Checker::fails_in_stream(const Directive& directive, const Directive& stream) const
{
  return directive.verb != Directive::DYNAMIC && !is_fatal_in_stream(directive, stream) &&
         (directive.verb == Directive::SUSPEND || services_before_.count(stream.name) == 0 ||
          services_before_.count(directive.name) == 0);
}

// One that is not known, as it is linked statically, counts as right.
bool Checker::is_of_type(const Directive& directive, Directive::Type type) const
{
  const auto there = services_.find(directive.name);
  return there == services_.end() || there->second.type == type;
}

// Within the braces the framework acts on what is no module as it reads it, before it makes the stream.
void Checker::begin_stream(std::size_t head)
{
  services_before_ = services_;
  for (std::size_t i = head + 1; i < directives_.size() && directives_[i].directive.in_stream; ++i)
    if (!failed_ && fails_in_stream(directives_[i].directive, directives_[head].directive))
      failed_ = &directives_[i];
}

// The framework follows null pointers where something is missing.
void Checker::check_operation(const Placed_Directive& placed, const Directive& stream)
{
  const Directive& directive = placed.directive;
  if (!is_fatal_in_stream(directive, stream))
    return;

  if (directive.verb == Directive::STATIC)
    add(placed.place, Finding_Kind::FATAL_DIRECTIVE,
        HOST_ENDS + ('\'' + directive.name) + "' is no module of a stream that is there");
  else
    add(placed.place, Finding_Kind::FATAL_DIRECTIVE,
        std::string(HOST_ENDS) + "there is no stream '" + stream.name + "' before it");
}

// After an error in the same file no module is pushed. Otherwise it is, whatever it is and onto whatever it is: the
// framework does not look.
void Checker::check_module(const Placed_Directive& placed, const Directive& stream)
{
  const std::string name = '\'' + placed.directive.name + '\'';
  if (stream.verb == Directive::STREAM) {
    add(placed.place, Finding_Kind::IGNORED_MODULE, name + " is not loaded: modules need 'stream dynamic'");
    return;
  }

  check_factory(placed);
  check_kept_name(placed);
  if (failed_)
    add(placed.place, Finding_Kind::IGNORED_MODULE,
        name + " is not pushed onto '" + stream.name + "', as the directive in " + describe(failed_->place) + " fails");
  else if (fails(placed))
    failed_ = &placed;
  else if (!is_of_type(stream, Directive::STREAM_OBJECT))
    add(placed.place, Finding_Kind::FATAL_DIRECTIVE, HOST_ENDS + ('\'' + stream.name) + "' is no STREAM");
  else if (!is_of_type(placed.directive, Directive::MODULE))
    add(placed.place, Finding_Kind::FATAL_DIRECTIVE, HOST_ENDS + name + " is no Module");
}

void Checker::check_directive(const Placed_Directive& placed, bool has_modules)
{
  const Directive& directive = placed.directive;
  if (!failed_ && fails(placed))
    failed_ = &placed;

  if (directive.verb == Directive::DYNAMIC)
    check_factory(placed);
  if (directive.verb == Directive::DYNAMIC && has_modules) {
    check_kept_name(placed);
    return;
  }

  check_name(placed);
}

bool Checker::check()
{
  if (!probe_libraries())
    return false;

  const Directive* stream = nullptr;
  bool is_passed_over = false;
  for (std::size_t i = 0; i < directives_.size(); ++i) {
    const Placed_Directive& placed = directives_[i];
    const Directive& directive = placed.directive;
    if (i == 0 || directives_[i - 1].source != placed.source) {
      failed_ = nullptr;
      is_passed_over = services_.count(placed.place.file) != 0;
      if (is_passed_over)
        add({placed.place.file, 0}, Finding_Kind::UNREADABLE_FILE,
            "is not read: there is a service of this name by then");
    }
    if (is_passed_over) // the framework takes the service for the file at hand
      continue;

    check_parameters(placed);
    if (directive.in_stream && directive.verb == Directive::DYNAMIC)
      check_module(placed, *stream);
    else if (directive.in_stream)
      check_operation(placed, *stream);
    else {
      const bool has_modules = i + 1 < directives_.size() && directives_[i + 1].directive.in_stream;
      if (has_modules) {
        stream = &directive;
        begin_stream(i);
      }
      check_directive(placed, has_modules);
    }
  }
  return true;
}
} // namespace

bool check_services(int argc, char** argv, Findings& findings)
{
  if (parse_options(argc, argv).background && chdir("/") != 0)
    return false;
  check_directories(argc, argv, findings);

  return open_service_config(argc, argv, true, [&findings](int args_count, char** args) {
    check_configurator_options(args_count, args, findings);
    check_signals(args_count, args, findings);
    if (goes_to_background(args_count, args) && chdir("/") != 0)
      return false;

    Checker checker(findings);
    for (const Source& source : configurator_sources(args_count, args))
      if (!checker.read(source))
        break;
    return checker.check();
  });
}
