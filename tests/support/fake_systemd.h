#ifndef TESTS_SUPPORT_FAKE_SYSTEMD_H
#define TESTS_SUPPORT_FAKE_SYSTEMD_H

#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <sstream>
#include <string>
#include <vector>

/// The path of the fake client library, or of its variant "_without_booted", "_without_notify" or "_without_watchdog".
inline std::string fake_library(const std::string& variant = "")
{
  return public_path(TESTS_FAKE_LIBRARY_DIR "/libfake_libsystemd" + variant + ".so");
}

/// The calls that the fake client library has written to `file`, such as "sd_notify 0 READY=1\n".
inline std::vector<std::string> fake_calls(const std::string& file)
{
  std::vector<std::string> calls;
  std::istringstream in(read_file(file));
  for (std::string call; std::getline(in, call, ';');)
    calls.push_back(call);
  return calls;
}

#endif // TESTS_SUPPORT_FAKE_SYSTEMD_H
