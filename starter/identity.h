#ifndef STARTER_IDENTITY_H
#define STARTER_IDENTITY_H

#include <ace/Basic_Types.h>

#include <vector>

/// The user or group id that `s` spells in decimal, 0 to 4294967295, or -1 when `s` is to be looked up as a name:
/// text after the digits, a minus sign, or too large a number. Leading white space and a plus sign are accepted, and
/// a text without any digits is id 0 if it is empty. `s` must not be null. May set `errno` to ERANGE. Any thread.
ACE_INT64 parse_uid_gid(const char* s);

/// Look up the account that `user` names or gives the id of. Sets `uid` and, unless `gid` is null, `*gid` to the
/// account's primary group. Returns the account's name, which the caller releases with delete[]. Without such an
/// account, or without memory, the ids are all ones, the result is null with `errno` (ENOENT when there is none), and
/// the reason is logged. Any thread.
char* get_uid(const char* user, unsigned& uid, unsigned* gid);

/// The same for a group: its id goes to `gid`, its name is the result.
char* get_gid(const char* group, unsigned& gid);

/// Make the process the user `opt_user` with the primary group `opt_group` and the further groups `opt_groups`, each a
/// name or a decimal id; null and empty stand for those that stay. A failure is logged and the rest goes on. Main
/// thread, before any other exists: threads would keep their identity.
void switch_identity(const char* opt_user, const char* opt_group, const std::vector<const char*>& opt_groups);

#endif // STARTER_IDENTITY_H
