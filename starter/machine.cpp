#include "starter/machine.h"

#include "scrt/environ.h"
#include "scrt/log.h"
#include "scrt/natoi.h"
#include "scrt/sysconf_helper.h"
#include "starter/product_version.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_sys_utsname.h>
#include <ace/OS_NS_unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include <fcntl.h>
#include <unistd.h>

short get_vm_swappiness()
{
  const int fd = ::open("/proc/sys/vm/swappiness", O_RDONLY);
  if (fd == -1)
    return -1;

  int e = 0;
  short rc = -1;
  char buf[4];
  const ssize_t n = ::read(fd, buf, sizeof buf - 1);
  if (n < 0)
    e = errno;
  else if (n > 0) {
    buf[n] = '\0';
    rc = natoi<short, char*>(buf, nullptr, nullptr);
  }

  ::close(fd);
  if (e != 0)
    errno = e;
  return rc;
}

void log_system_info()
{
  const short swappiness = get_vm_swappiness();
  if (swappiness < 0)
    LOG_RECORD(LM_ERROR, "Failed to get vm swappiness from /proc/sys/vm/swappiness, errno=%d, %m\n",
               ACE_OS::last_error());

  struct utsname uts;
  if (ACE_OS::uname(&uts) != 0)
    return;

  const int processors = static_cast<int>(ACE_OS::num_processors());
  const ACE_UINT64 memory = (get_system_memory() + 0x20000000) >> 30; // to the nearest GiB, halves up
  LOG_RECORD(LM_INFO,
             "system info: sysname=%s, nodename=%s, release=%s, version=%s, machine=%s, processors=%d, memory=%QG, "
             "nofile=%d, swappiness=%d\n",
             uts.sysname, uts.nodename, uts.release, uts.version, uts.machine, processors, memory, ACE::max_handles(),
             static_cast<int>(swappiness));
}

// Cut the end off `component` that has no room in the banner, whole characters of UTF-8 at a time. The framework cuts
// records at the end, where the banner says what operators wait for.
static void fit_into_banner(std::string& component)
{
  constexpr std::size_t MAX_SIZE =
      (ACE_MAXLOGMSGLEN) - (sizeof "tessarin3- " STARTER_VERSION " (rev " STARTER_REVISION ") is started.\n" - 1);
  if (component.size() <= MAX_SIZE)
    return;

  std::size_t size = MAX_SIZE;
  while (size > MAX_SIZE - 3 && (component[size] & 0xC0) == 0x80)
    --size;
  component.resize(size);
}

void log_product_info()
{
  std::string component = get_env_r("COMPONENT");
  fit_into_banner(component);

  if (!component.empty())
    LOG_RECORD(LM_INFO, "tessarin3-%s " STARTER_VERSION " (rev " STARTER_REVISION ") is started.\n", component.c_str());
  else
    LOG_RECORD(LM_INFO, "tessarin3 " STARTER_VERSION " (rev " STARTER_REVISION ") is started.\n");
}
