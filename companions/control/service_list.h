#ifndef COMPANIONS_CONTROL_SERVICE_LIST_H
#define COMPANIONS_CONTROL_SERVICE_LIST_H

#include <string>
#include <vector>

/// A service in the framework's repository.
struct Service
{
  std::string name;
  const char* type;    ///< "service", "module" or "stream"
  bool is_active;      ///< else it is suspended
  std::string library; ///< the path; empty for a stream, a module, and a service that is linked statically
  const void* object;  ///< null while its init runs
};

/// List the services in the order of their loading, in the place of what is in `services`. False if another thread
/// holds the lock of the repository for longer than a moment, as a thread does that hangs while it changes services:
/// then nothing is changed. Any thread, but no signal handler.
bool list_services(std::vector<Service>& services);

#endif // COMPANIONS_CONTROL_SERVICE_LIST_H
