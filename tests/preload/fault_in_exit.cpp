// This library is preloaded into a process under test. It has three exit handlers that tell on standard error when they
// run. The second and the third one fault.

#include <cstdlib>
#include <cstring>

#include <errno.h>
#include <unistd.h>

namespace
{
void say(const char* text)
{
  if (::write(STDERR_FILENO, text, std::strlen(text)) < 0)
    std::abort();
}

void fault()
{
  volatile int* volatile const nothing = nullptr;
  *nothing = 1;
}

// Other programs that the program under test starts inherit the library.
__attribute__((constructor)) void install()
{
  if (std::strcmp(program_invocation_short_name, "starter") != 0)
    return;

  // The one that is registered last runs first.
  std::atexit([] {
    say("third exit handler ran\n");
    fault();
  });
  std::atexit([] {
    say("second exit handler ran\n");
    fault();
  });
  std::atexit([] { say("first exit handler ran\n"); });
}
} // namespace
