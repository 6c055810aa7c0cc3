#ifndef TESTS_SUPPORT_SYSTEMD_FIXTURE_H
#define TESTS_SUPPORT_SYSTEMD_FIXTURE_H

#include "tests/support/systemd_machine.h"

#include <gtest/gtest.h>

#include <string>

/// The base of tests that run the program as a unit in a Systemd_Machine. The program has a service that stalls the
/// loop on command. The test provides the unit and boots. When it fails, it prints the console and the log.
class Systemd_Fixture : public testing::Test
{
protected:
  explicit Systemd_Fixture(const std::string& unit);
  ~Systemd_Fixture() override;

  void SetUp() override;

  /// The directive that loads the stalling service. `params` come after those that tell it to stall.
  std::string staller_directive(const std::string& params = "") const;

  /// Lines of the section [Service]. They send standard error to log(), and pass options of a sanitizer to the program.
  std::string test_settings() const;

  /// A property of the unit.
  std::string show(const std::string& property) const;
  bool wait_for(const std::string& property, const std::string& value) const;

  std::string log() const;
  bool wait_for_record(const std::string& text) const;

  /// Wait until systemd has got `count` keep-alives more.
  bool wait_for_keep_alives(unsigned count) const;

  /// The number of threads of the main process of the unit, as a text.
  std::string threads() const;

  void tell_staller(char what) const;

  Systemd_Machine machine_;

private:
  const std::string unit_;
  int fifo_fd_ = -1;
};

#endif // TESTS_SUPPORT_SYSTEMD_FIXTURE_H
