// This library is preloaded into a process under test. Its way to the background ends in an exception, before the
// process has installed any signal disposition.

#include <ace/ACE.h>

#include <stdexcept>

namespace ACE
{
int daemonize(const ACE_TCHAR[], bool, const ACE_TCHAR[])
{
  throw std::runtime_error("thrown on the way");
}
} // namespace ACE
