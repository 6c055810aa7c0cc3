#include "starter/identity.h"

#include "scrt/log.h"

#include <ace/ACE.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

ACE_INT64 parse_uid_gid(const char* s)
{
  char* end = nullptr;
  const long long value = std::strtoll(s, &end, 10);
  if (*end != '\0')
    return -1;
  if (value < 0 || value > 4294967295LL)
    return -1;

  return value;
}

static char* new_sysconf_buffer(int name, int default_, int item_size, unsigned& res)
{
  res = 0;
  long size = sysconf(name);
  if (size <= 0)
    size = default_;

  char* const buffer = new (std::nothrow) char[static_cast<std::size_t>(size) * static_cast<std::size_t>(item_size)];
  if (!buffer) {
    errno = ENOMEM;
    return nullptr;
  }

  res = static_cast<unsigned>(size);
  return buffer;
}

char* get_uid(const char* user, unsigned& uid, unsigned* gid)
{
  uid = static_cast<unsigned>(-1);
  if (gid)
    *gid = static_cast<unsigned>(-1);

  const ACE_INT64 v = parse_uid_gid(user);
  unsigned size;
  const std::unique_ptr<char[]> buf(new_sysconf_buffer(_SC_GETPW_R_SIZE_MAX, 16384, 1, size));
  if (!buf) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, buf is NULL:\n%?\n");
    return nullptr;
  }

  struct passwd entry;
  struct passwd* found = nullptr;
  const int rc = v < 0 ? getpwnam_r(user, &entry, buf.get(), size, &found)
                       : getpwuid_r(static_cast<uid_t>(v), &entry, buf.get(), size, &found);
  if (!found) {
    errno = rc != 0 ? rc : ENOENT;
    LOG_RECORD(LM_ERROR, "Failed to get %C password entry, errno=%d, %m\n", user, errno);
    return nullptr;
  }

  uid = found->pw_uid;
  if (gid)
    *gid = found->pw_gid;
  return ACE::strnew(found->pw_name);
}

char* get_gid(const char* group, unsigned& gid)
{
  gid = static_cast<unsigned>(-1);

  const ACE_INT64 v = parse_uid_gid(group);
  unsigned size;
  const std::unique_ptr<char[]> buf(new_sysconf_buffer(_SC_GETGR_R_SIZE_MAX, 16384, 1, size));
  if (!buf) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, buf is NULL:\n%?\n");
    return nullptr;
  }

  struct group entry;
  struct group* found = nullptr;
  const int rc = v < 0 ? getgrnam_r(group, &entry, buf.get(), size, &found)
                       : getgrgid_r(static_cast<gid_t>(v), &entry, buf.get(), size, &found);
  if (!found) {
    errno = rc != 0 ? rc : ENOENT;
    LOG_RECORD(LM_ERROR, "Failed to get %C group entry, errno=%d, %m\n", group, errno);
    return nullptr;
  }

  gid = found->gr_gid;
  return ACE::strnew(found->gr_name);
}

static void add_supplementary_groups(const std::vector<const char*>& opt_groups)
{
  unsigned size = 0;
  const std::unique_ptr<char[]> buf(new_sysconf_buffer(_SC_NGROUPS_MAX, 65536, sizeof(gid_t), size));
  if (!buf)
    return;

  gid_t* const gids = reinterpret_cast<gid_t*>(buf.get());
  int n = getgroups(static_cast<int>(size), gids);
  if (n < 0) {
    LOG_FAILED(LM_ERROR, "Failed to get supplementary groups, errno=%d, %m\n", errno);
    n = 0;
  }

  for (const char* const text : opt_groups) {
    if (n >= static_cast<int>(size))
      break;
    const std::unique_ptr<char[]> group(get_gid(text, gids[n]));
    if (group)
      ++n;
  }

  if (setgroups(static_cast<std::size_t>(n), gids) < 0)
    LOG_FAILED(LM_ERROR, "Failed to set supplementary groups, errno=%d, %m\n", errno);
}

// Operators rely on this order as it stands: the primary group, the groups of the account, the user, the supplementary
// groups. A superuser has become somebody else by the last step, which is then refused and logged.
void switch_identity(const char* opt_user, const char* opt_group, const std::vector<const char*>& opt_groups)
{
  uid_t uid = static_cast<uid_t>(-1);
  gid_t gid = static_cast<gid_t>(-1);
  std::unique_ptr<char[]> user;
  std::unique_ptr<char[]> group;

  if (opt_group)
    group.reset(get_gid(opt_group, gid));
  if (opt_user)
    user.reset(get_uid(opt_user, uid, group ? nullptr : &gid));
  if (user && !group)
    group.reset(ACE::strnew(""));

  const uid_t ruid = getuid();
  const gid_t rgid = getgid();

  if (group && gid != rgid && setgid(gid) != 0)
    LOG_FAILED(LM_ERROR, "Failed to set gid to %u, errno=%d, %m\n", gid, errno);

  if (user) {
    if ((gid != rgid || uid != ruid) && initgroups(user.get(), gid) != 0)
      LOG_FAILED(LM_ERROR, "Failed to init groups by %C (uid=%u) and %C (gid=%u), errno=%d, %m\n", user.get(), uid,
                 group.get(), gid, errno);
    if (uid != ruid && setuid(uid) != 0)
      LOG_FAILED(LM_ERROR, "Failed to set uid to %u, errno=%d, %m\n", uid, errno);
  }

  if (!opt_groups.empty())
    add_supplementary_groups(opt_groups);
}
