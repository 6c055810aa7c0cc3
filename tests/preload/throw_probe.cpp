// Preloaded into a process under test: its way to the background ends in an exception, which is before the process
// has any signal disposition of its own.

#include <ace/ACE.h>

#include <stdexcept>

namespace ACE
{
int daemonize(const ACE_TCHAR[], bool, const ACE_TCHAR[])
{
  throw std::runtime_error("thrown on the way");
}
} // namespace ACE
