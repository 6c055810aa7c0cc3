#include "check/loaded_services.h"

const Loaded_Service* Loaded_Services::find(const std::string& name) const
{
  const auto found = services_.find(name);
  return found == services_.end() ? nullptr : &found->second;
}

std::string Loaded_Services::break_stream(const std::string& name)
{
  return broken_.insert(name).second ? name : "";
}

std::string Loaded_Services::load(const std::string& name, const Loaded_Service& service)
{
  std::string broken = remove(name);
  services_.emplace(name, service);
  return broken;
}

bool Loaded_Services::keep(const std::string& name, const Loaded_Service& service)
{
  return services_.emplace(name, service).second;
}

// A stream that goes takes its modules off, and they stay.
std::string Loaded_Services::remove(const std::string& name)
{
  const auto found = services_.find(name);
  if (found == services_.end())
    return "";

  const std::string stream = found->second.stream;
  services_.erase(found);
  for (auto& [other, service] : services_)
    take_off(other, name);
  return stream.empty() ? "" : break_stream(stream);
}

std::string Loaded_Services::push(const std::string& name, const std::string& stream)
{
  const auto found = services_.find(name);
  if (found == services_.end())
    return "";

  Loaded_Service& module = found->second;
  const bool was_pushed = module.was_pushed;
  module.was_pushed = true;
  module.stream = stream;
  return was_pushed ? break_stream(stream) : "";
}

void Loaded_Services::take_off(const std::string& name, const std::string& stream)
{
  const auto found = services_.find(name);
  if (found != services_.end() && found->second.stream == stream)
    found->second.stream.clear();
}
