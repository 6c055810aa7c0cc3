#ifndef TESTS_CLUSTER_POWER_SWITCH_H
#define TESTS_CLUSTER_POWER_SWITCH_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>

/// The other end of the fence agent fence_machine: a socket on which machines ask for the power of others to be cut.
class Power_Switch
{
public:
  /// Listen on a socket at `path`. A thread of the switch calls `power_off` with the name of a machine; its false says
  /// that there is no such machine.
  Power_Switch(const std::string& path, std::function<bool(const std::string&)> power_off);
  ~Power_Switch();

  Power_Switch(const Power_Switch&) = delete;
  Power_Switch& operator=(const Power_Switch&) = delete;

private:
  void serve();
  void answer(int fd) const;

  const std::function<bool(const std::string&)> power_off_;
  int fd_;
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

#endif // TESTS_CLUSTER_POWER_SWITCH_H
