// This library is preloaded into a process under test. Its way to the background ends in an exception, before the
// process has installed any signal disposition. With the environment variable THROW_PROBE_MEMORY set, the exception is
// a lack of memory, and the process gets no more of it.

#include "tests/support/no_memory.h"

#include <ace/ACE.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

namespace ACE
{
int daemonize(const ACE_TCHAR[], bool, const ACE_TCHAR[])
{
  if (!std::getenv("THROW_PROBE_MEMORY"))
    throw std::runtime_error("thrown on the way");

  take_all_memory();
  throw std::bad_alloc();
}
} // namespace ACE
