#ifndef TESTS_SUPPORT_SYSTEMD_MACHINE_H
#define TESTS_SUPPORT_SYSTEMD_MACHINE_H

#include "tests/support/temp_dir.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include <sys/types.h>

/// systemd as process 1 of new namespaces, with no other units than those of the test. It sees the files of this
/// machine, but can write only below dir(), and has its own /dev, /proc, /run and control group. It needs root. The
/// destructor kills process 1, and with it all processes of the machine.
class Systemd_Machine
{
public:
  /// The network that processes of the machine see: that of the test, or one of their own, without a connection.
  enum class Network { SHARED, OWN };

  explicit Systemd_Machine(Network network = Network::SHARED);
  ~Systemd_Machine();

  Systemd_Machine(const Systemd_Machine&) = delete;
  Systemd_Machine& operator=(const Systemd_Machine&) = delete;

  /// Whether systemd is installed here.
  static bool is_installed();

  /// The directory that processes of the machine share with the test.
  const Temp_Dir& dir() const { return dir_; }

  /// Provide the unit `name`; before boot(). "test.target" is what is booted to, an empty one unless provided.
  void add_unit(const std::string& name, const std::string& content) const { dir_.write("units/" + name, content); }

  /// Provide the unit journald.service, systemd's journal; before boot(). It keeps all entries, in memory.
  void add_journal() const;

  /// Start the journal; after boot(). Returns whether it serves.
  bool start_journal() const;

  /// Start systemd and wait until it serves. False when that takes a minute; see console().
  bool boot();

  /// Cut the power, once boot() has returned: no process of the machine is left when this function returns. After that,
  /// the machine can only be destroyed.
  void power_off();

  /// The process id that the machine's process 1 has outside; -1 before boot().
  pid_t pid() const { return init_; }

  /// Run the shell command `command` in the machine. Returns its standard output without the last newline.
  std::string run(const std::string& command) const;

  /// Run the shell command `command` in the machine. Returns whether it succeeds.
  bool succeeds(const std::string& command) const;

  /// The text that systemd has written to its console.
  std::string console() const;

private:
  void start();
  void read_console();
  std::string make_command(const std::string& command) const;

  const Network network_;
  Temp_Dir dir_;
  int console_fd_ = -1;
  pid_t outer_ = -1; ///< the shell outside the machine that starts it and cleans up
  pid_t init_ = -1;  ///< the machine's process 1
  std::string console_;
  mutable std::mutex mutex_; ///< guards console_
  std::atomic<bool> ended_{false};
  std::thread reader_;
};

#endif // TESTS_SUPPORT_SYSTEMD_MACHINE_H
