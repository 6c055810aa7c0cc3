#ifndef COMPANIONS_CONTROL_CONFIGURATION_H
#define COMPANIONS_CONTROL_CONFIGURATION_H

#include <map>
#include <string>
#include <vector>

/// A service that the configuration asks for.
struct Wanted_Service
{
  const char* type;      ///< "service", "module" or "stream"
  bool is_active;        ///< else the configuration has it suspended
  std::string library;   ///< as the configuration names it; empty for a service that is linked statically
  std::string directive; ///< the one that loads the service alone; empty if it cannot be loaded so
};

using Wanted_Services = std::map<std::string, Wanted_Service>;

/// The files and directives that the program was started with.
class Configuration
{
public:
  /// Ask the framework for them. The first call that finds something counts: later ones could not see the directives of
  /// the command line any more. In the init of a service, main thread.
  void remember_sources();

  /// Read the files as a reload does now. Any thread; waits for the file system.
  Wanted_Services read() const;

private:
  std::vector<std::string> files_;
  std::vector<std::string> directives_;
};

/// Read a text that is to be one directive which loads services. Returns the names of these services, or none with the
/// reason why the text is not such a directive. Any thread.
std::vector<std::string> read_load_directive(const std::string& text, std::string& reason);

#endif // COMPANIONS_CONTROL_CONFIGURATION_H
