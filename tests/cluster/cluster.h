#ifndef TESTS_CLUSTER_CLUSTER_H
#define TESTS_CLUSTER_CLUSTER_H

#include "tests/cluster/power_switch.h"
#include "tests/support/systemd_machine.h"
#include "tests/support/temp_dir.h"

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// Three machines with systemd and a network of their own, node1 to node3, and the test as a client of them. Each
/// machine has two cables, in two bridges: the cluster talks in 192.0.2.0/24, and clients are served in
/// 198.51.100.0/24. The last number of an address is that of the machine; the test has 100. The machines have the
/// system of this one, with the packages that are given, and forget all changes when their power is cut.
///
/// The process that makes a cluster gets a network and mounts of its own for good, and must have no threads at that
/// moment. It needs root.
class Cluster
{
public:
  static constexpr unsigned SIZE = 3;
  static constexpr char ADDRESS[] = "198.51.100.10"; ///< the one that moves with the service
  static constexpr unsigned short PORT = 7007;

  explicit Cluster(const std::vector<std::string>& packages = {});

  /// Let all machines have the file `path` with this `content`, from the next boot on.
  void add_file(const std::string& path, const std::string& content, const std::string& owner = "root:root",
                const std::string& mode = "644") const;

  /// Boot machine `node`, which is off, connect its cables and start what `units` names. The test fails if that fails.
  void boot(unsigned node, const std::string& units = "");

  /// Cut the power of a machine, if it has any.
  void power_off(unsigned node);

  /// Pull the cable in which `node` talks to the rest of the cluster.
  void cut_off(unsigned node) const;

  Systemd_Machine& machine(unsigned node) const { return *machines_[node]; }

  /// A machine that has power. The cluster may be asked there.
  Systemd_Machine& any_machine() const;

  bool is_on(unsigned node) const;

  /// The file that lists the processes of the unit `name`, which is an instance of starter@, on `node`.
  std::string processes_file(unsigned node, const std::string& name) const;

  /// The socket of the power switch, which the fence agent knows.
  static std::string socket() { return "/mnt/power"; }

  static std::string name_of(unsigned node) { return "node" + std::to_string(node + 1); }

private:
  void install(const std::vector<std::string>& packages) const;
  void connect(unsigned node) const;
  bool power_off(const std::string& name);

  Temp_Dir dir_;
  mutable std::mutex mutex_; ///< guards power, in both meanings: the pointers of machines_
  std::array<std::unique_ptr<Systemd_Machine>, SIZE> machines_;
  std::unique_ptr<Power_Switch> switch_;
};

#endif // TESTS_CLUSTER_CLUSTER_H
