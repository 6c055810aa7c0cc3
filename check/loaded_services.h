#ifndef CHECK_LOADED_SERVICES_H
#define CHECK_LOADED_SERVICES_H

#include "check/finding.h"
#include "check/svc_conf.h"

#include <map>
#include <set>
#include <string>

/// A dynamic service that is there.
struct Loaded_Service
{
  Place place; ///< of its directive
  Directive::Type type;
  bool was_pushed = false; ///< a module that a stream has or had
  std::string stream = {}; ///< the name of the stream that the module is on, or empty
};

/// The dynamic services that are there at some point, by their names, and the streams that are broken by then.
///
/// A module survives one stream: taken off, it has lost its tasks. A module that is pushed again, or that goes while it
/// is on a stream, therefore breaks the stream: a fault follows when the stream is taken apart, or at once. The
/// functions that return a text return the name of the stream that is broken and has not been before, or an empty one.
class Loaded_Services
{
public:
  /// The service of this name, or null. Valid until the services change.
  const Loaded_Service* find(const std::string& name) const;

  /// Load a service, in place of the one of its name.
  std::string load(const std::string& name, const Loaded_Service& service);

  /// Load a service unless there is one of its name. False if there is.
  bool keep(const std::string& name, const Loaded_Service& service);

  std::string remove(const std::string& name);

  /// Push the module `name`, if there is one, onto the stream.
  std::string push(const std::string& name, const std::string& stream);

  /// Take the module `name` off the stream, if it is there. It is still loaded.
  void take_off(const std::string& name, const std::string& stream);

private:
  std::string break_stream(const std::string& name);

  std::map<std::string, Loaded_Service> services_;
  std::set<std::string> broken_;
};

#endif // CHECK_LOADED_SERVICES_H
