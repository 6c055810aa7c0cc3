#ifndef CHECK_ACCOUNT_PROBE_H
#define CHECK_ACCOUNT_PROBE_H

/// Whether the system has the user that `text` names or gives the id of, read as the host reads it. Any one thread.
bool is_known_user(const char* text);

/// The same for a group.
bool is_known_group(const char* text);

#endif // CHECK_ACCOUNT_PROBE_H
