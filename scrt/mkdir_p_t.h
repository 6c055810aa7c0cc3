#ifndef SCRT_MKDIR_P_T_H
#define SCRT_MKDIR_P_T_H

/// @file
/// The template behind mkdir_p takes any character type and separator that the framework's calls know.

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/OS_NS_string.h>
#include <ace/OS_NS_sys_stat.h>

#include <cerrno>
#include <functional>
#include <memory>

/// Gives memory back to the C library; for owning pointers.
struct Free_Delete
{
  /// Free `p`, which may be null.
  void operator()(void* p) const { ACE_OS::free(p); }
};

/// Move from `slash`, which is where a prefix of a path ends, over the separators and the component behind it. Returns
/// the new end of the prefix. `sep` holds the separator as a string. `T` is char or wchar_t.
template <typename T>
T* next_component(T* slash, const T* sep)
{
  slash += ACE_OS::strspn(slash, sep);
  return slash + ACE_OS::strcspn(slash, sep);
}

/// Do what mkdir_p does (see there), with components separated by `sep`. `T` is char or wchar_t.
template <typename T>
int mkdir_p_t(const T* path, unsigned mode, T sep, std::function<bool(const T*)> cb)
{
  if (!path || !*path) {
    ACE_OS::last_error(EINVAL);
    return -1;
  }

  std::unique_ptr<T, Free_Delete> t(ACE_OS::strdup(path));
  if (!t)
    return -1;

  const T sep_str[] = {sep, 0};
  T* slash = t.get();
  int err = 0;
  bool done = false;
  while (!done) {
    slash = next_component(slash, sep_str);
    done = !*slash;
    *slash = 0;

    ACE_stat st;
    if (ACE_OS::stat(t.get(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) {
        err = ENOTDIR;
        break;
      }
    } else if (ACE_OS::mkdir(t.get(), mode) == 0) {
      // Kept: the callback's veto is no error. A caller that has to tell a veto from success takes note in the
      // callback.
      if (cb && !cb(t.get()))
        break;
    } else if (ACE_OS::last_error() != EEXIST) { // else another thread or process has made it
      err = ACE_OS::last_error();
      break;
    }

    *slash = sep; // also at the end of the path, where nobody reads it
  }

  t.reset();
  if (err == 0)
    return 0;
  ACE_OS::last_error(err);
  return -1;
}

#endif // SCRT_MKDIR_P_T_H
