#include "scrt/sysconf_helper.h"

#include <unistd.h>

// The result is widened with its sign, so that the product is the same on platforms whose long has 32 bits.
static unsigned long long get_sysconf(int name)
{
  return static_cast<unsigned long long>(static_cast<long long>(sysconf(name)));
}

unsigned long long get_system_memory()
{
  return get_sysconf(_SC_PHYS_PAGES) * get_sysconf(_SC_PAGESIZE);
}
