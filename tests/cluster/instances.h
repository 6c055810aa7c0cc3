#ifndef TESTS_CLUSTER_INSTANCES_H
#define TESTS_CLUSTER_INSTANCES_H

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

/// Watches the processes of a unit on several machines, from outside and as often as it can.
class Instances
{
public:
  /// The files cgroup.procs of the unit, one for each machine. An empty path stands for a machine that is switched off.
  explicit Instances(std::vector<std::string> paths);
  ~Instances();

  Instances(const Instances&) = delete;
  Instances& operator=(const Instances&) = delete;

  /// Change the file of a machine that has booted again.
  void set_path(unsigned machine, const std::string& path);

  /// The machine on which the unit has processes; -1 when there is none.
  int active() const;

  /// The processes of the unit on `machine`.
  std::vector<pid_t> processes(unsigned machine) const;

  /// The number of moments at which two machines had processes of the unit.
  unsigned doubled() const { return doubled_; }

  /// The time for which two machines had processes of the unit, in all.
  std::chrono::duration<double> doubled_time() const { return std::chrono::nanoseconds(doubled_nsec_); }

  /// The number of moments that were looked at.
  unsigned looks() const { return looks_; }

private:
  void watch();
  bool is_doubled() const;
  std::string path(unsigned machine) const;

  std::vector<std::string> paths_;
  mutable std::mutex mutex_; ///< guards paths_
  std::atomic<unsigned> doubled_{0};
  std::atomic<std::chrono::nanoseconds::rep> doubled_nsec_{0};
  std::atomic<unsigned> looks_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

#endif // TESTS_CLUSTER_INSTANCES_H
