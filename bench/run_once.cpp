// Starts a program, waits until it reports that it is started, and ends it by the signal: for tools that count what it
// does.
//
//   run_once SIGNAL COMMAND [ARGUMENT...]

#include "bench/process.h"

#include <cstdlib>

int main(int argc, char** argv)
try {
  Process process(Words(argv + 2, argv + argc));
  process.wait_for("is started.");
  process.end(std::atoi(argv[1]));
} catch (const std::exception& failure) {
  return tell(failure);
}
