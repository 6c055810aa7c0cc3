#ifndef SCRT_ENVIRON_H
#define SCRT_ENVIRON_H

/// @file
/// These functions read and change the environment under one lock.
///
/// The threads of a process share this reader/writer lock through all four functions, and each change is one step for
/// every other user of the functions. Code that calls the C library directly is not kept out. Any thread, from the
/// constructors of static objects on. Readers overtake waiting writers: a change waits as long as some reader is always
/// there.
///
/// A null or empty `name` is logged at the emergency priority with a back trace. Nothing else is logged. When the
/// lock cannot be taken, the result is that of a failure.

#include <string>

/// Returns a copy of the value of the variable `name`. The copy is empty when there is no such variable, when its value
/// is empty, and when the call fails; the three cannot be told apart.
std::string get_env_r(const char* name);

/// Set the variable `name` to `val`, which is copied, whether or not the variable exists. Returns true when that
/// succeeds, else false with the `errno` of setenv(3).
/// A null `val` removes the variable, and then the answer is the other way round: false when the variable is gone,
/// true with the `errno` of unsetenv(3) when it could not be removed.
bool set_env(const char* name, const char* val);

/// Add `val` behind the value of `name`, with a ":" in between, even if the value contains the text already. If there
/// is no value or an empty one, `val` alone becomes the value. `val` must not be null. The result is that of set_env.
bool append_env(const char* name, const char* val);

/// Add `val` in front of the value of `name`. In all other respects this is append_env.
bool prepend_env(const char* name, const char* val);

#endif // SCRT_ENVIRON_H
