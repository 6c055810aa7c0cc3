#include "starter/configuration.h"

#include <ace/OS_NS_string.h>
#include <ace/OS_NS_sys_stat.h>
#include <ace/Service_Config.h>

const char* find_file_extension(const char* path)
{
  if (!path || !*path)
    return nullptr;

  return ACE_OS::strrchr(path, '.');
}

bool is_file_extension(const char* path, const char* ext)
{
  if (!ext || !*ext)
    return false;

  const char* const found = find_file_extension(path);
  return found && ACE_OS::strcmp(found + 1, ext) == 0;
}

bool is_regular_file(const char* path)
{
  ACE_stat st;

  return ACE_OS::stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

bool do_open_service(int argc, char** argv)
{
  // The configurator would install a hang-up disposition of its own, which sets a flag that our loop never looks at.
  // Constructing one for signal 0 keeps it from that, and leaves -s its meaning. The singleton must exist by then:
  // its own construction sets the signal back.
  (void)ACE_Service_Config::singleton();
  const ACE_Service_Config without_signal(true, ACE_Service_Repository::DEFAULT_SIZE, 0);

  return ACE_Service_Config::open(argc, argv, ACE_DEFAULT_LOGGER_KEY, false, false, true) == 0;
}
