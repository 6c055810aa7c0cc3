#include "scrt/mkdir_p.h"

#include "scrt/mkdir_p_t.h"

#include <utility>

int mkdir_p(const char* path, unsigned mode, std::function<bool(const char*)> cb)
{
  return mkdir_p_t<char>(path, mode, '/', std::move(cb));
}

int mkdir_p(const wchar_t* path, unsigned mode, std::function<bool(const wchar_t*)> cb)
{
  return mkdir_p_t<wchar_t>(path, mode, L'/', std::move(cb));
}

// Walk over `result` as long as there are directories. `*st` receives the status of the last directory, and
// `*last_slash` its end. Returns 0 when that is the end of the path, else the error that stopped the walk.
static int walk_directories(char* result, struct stat* st, char** last_slash)
{
  char* slash = result;
  bool done = false;
  while (!done) {
    slash = next_component(slash, "/");
    done = !*slash;
    *slash = 0;

    struct stat sb;
    if (ACE_OS::stat(result, &sb) != 0)
      return ACE_OS::last_error();
    if (!S_ISDIR(sb.st_mode))
      return ENOTDIR;

    *slash = '/'; // also at the end of the path: the caller cuts the text anew
    *last_slash = slash;
    *st = sb;
  }

  return 0;
}

char* longest_exist_dirname(const char* path, struct stat* st)
{
  std::unique_ptr<char, Free_Delete> result(ACE_OS::strdup(path));
  char* last_slash = result.get();
  int err = 0;

  // Kept as it is: without memory or without `st` nothing is looked at, and errno is 0 all the same.
  if (result && st)
    err = walk_directories(result.get(), st, &last_slash);

  if (err == ENOENT) {
    const bool none = last_slash == result.get();
    if (none && *path == '/') {
      ++last_slash;
      (void)ACE_OS::stat("/", st); // no parent is left to fall back on
    }
    if (!none || *path == '/')
      err = 0;
  }

  if (err != 0) {
    result.reset();
    ACE_OS::last_error(err);
    return nullptr;
  }

  if (result)
    *last_slash = 0;
  ACE_OS::last_error(0);
  return result.release();
}
