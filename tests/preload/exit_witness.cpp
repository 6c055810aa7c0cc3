// This library reports on standard error that exit handlers and static destructors of the program run. It reports
// nothing in other programs that the program under test starts, which inherit it.

#include <cstdlib>
#include <cstring>

#include <errno.h>
#include <unistd.h>

namespace
{
void say(const char* text)
{
  if (std::strcmp(program_invocation_short_name, "starter") == 0 && ::write(STDERR_FILENO, text, std::strlen(text)) < 0)
    std::abort();
}

struct Witness
{
  Witness()
  {
    std::atexit([] { say("exit handler ran\n"); });
  }
  ~Witness() { say("static destructor ran\n"); }
};

Witness witness;
} // namespace
