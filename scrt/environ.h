#ifndef SCRT_ENVIRON_H
#define SCRT_ENVIRON_H

/// @file
/// The environment, read and changed under one lock.
///
/// For a process with threads: all four functions share one reader/writer lock, and each change is
/// one step for every other user of them. Code that goes to the C library directly is not kept out. Any thread, from
/// the constructors of static objects on. Readers overtake waiting writers: a change waits as long as there is always
/// somebody reading.
///
/// A null or empty `name` is logged at the emergency priority with a back trace. Nothing else is logged. When the
/// lock cannot be taken, the result is that of a failure.

#include <string>

/// A copy of the value of the variable `name`. Empty when there is no such variable, when its value is empty, and when
/// the call fails; these cannot be told apart.
std::string get_env_r(const char* name);

/// Set `name` to `val`, which is copied, whether or not it exists: true when that succeeds, else false with the
/// `errno` of setenv(3).
/// A null `val` removes the variable, and then the answer is the other way round: false when the variable is gone,
/// true with the `errno` of unsetenv(3) when it could not be removed.
bool set_env(const char* name, const char* val);

/// Add `val` behind the value of `name`, with a ":" in between, also if the text is there already. Without a value, or
/// with an empty one, `val` alone becomes the value. `val` must not be null. Result as for set_env.
bool append_env(const char* name, const char* val);

/// Add `val` in front of the value of `name`; for the rest as append_env.
bool prepend_env(const char* name, const char* val);

#endif // SCRT_ENVIRON_H
