// Starts a program, waits until it reports that it is started, and ends it: for tools that count what it does.
//
//   run_once COMMAND [ARGUMENT...]

#include "bench/process.h"

int main(int argc, char** argv)
try {
  Process process(Words(argv + 1, argv + argc));
  process.wait_for("is started.");
  process.end();
} catch (const std::exception& failure) {
  return tell(failure);
}
