#include "check/account_probe.h"

#include "starter/starter.h"

#include <grp.h>
#include <pwd.h>

bool is_known_user(const char* text)
{
  const ACE_INT64 id = parse_uid_gid(text);
  return (id < 0 ? getpwnam(text) : getpwuid(static_cast<uid_t>(id))) != nullptr;
}

bool is_known_group(const char* text)
{
  const ACE_INT64 id = parse_uid_gid(text);
  return (id < 0 ? getgrnam(text) : getgrgid(static_cast<gid_t>(id))) != nullptr;
}
