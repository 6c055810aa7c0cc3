#include "scrt/path_conf.h"

#include "scrt/log.h"
#include "scrt/mkdir_p.h"

#include <ace/Default_Constants.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/OS_NS_string.h>
#include <ace/SString.h>

#include <boost/algorithm/string/replace.hpp>

#include <cerrno>

static bool is_empty(const char* text)
{
  return !text || !*text;
}

static void append_component(std::string& path, const char* component)
{
  if (is_empty(component))
    return;

  path += '/';
  path += component;
}

Path_Conf::Path_Conf(const char* prefix, bool create, const char* basename, unsigned mode)
{
  init(prefix, create, basename, mode);
}

Path_Conf::Path_Conf(const char* prefix, const char* sub, bool create, const char* basename, unsigned mode)
{
  if (is_empty(prefix)) { // checked before a sub-directory is added, which would make an absolute path of it
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, prefix is NULL or \"\":\n%?\n");
    return;
  }

  std::string tmp(prefix);
  append_component(tmp, sub);
  init(tmp.c_str(), create, basename, mode);
}

Path_Conf::~Path_Conf() = default;

// Returns a copy of `text` with the first variable replaced by its value, which the caller frees; null with errno on
// failure.
static char* expand(const char* text)
{
  // The framework copies the name into a buffer of this size on its stack and does not check the length of the name.
  const char* const reference = ACE_OS::strchr(text, '$');
  if (reference && ACE_OS::strcspn(reference + 1, "$~!#%^&*()-+=\\|/?,.;:'\"`[]{} \t\n\r") >= ACE_DEFAULT_ARGV_BUFSIZ) {
    errno = ENAMETOOLONG;
    return nullptr;
  }

  return ACE_OS::strenvdup(text);
}

void Path_Conf::init(const char* prefix, bool create, const char* basename, unsigned mode)
{
  if (is_empty(prefix)) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, prefix is NULL or \"\":\n%?\n");
    return;
  }

  char* const p = expand(prefix);
  const ACE_Auto_String_Free pref(p);
  if (!p) {
    LOG_FAILED(LM_ERROR, "Failed to strenvdup '%s', errno=%d, %m\n", prefix, errno);
    return;
  }

  // The failure is only logged: the caller wants the path all the same, and whoever opens the file sees the error.
  if (create && mkdir_p(p, mode, nullptr) == -1 && errno != EEXIST)
    LOG_FAILED(LM_ERROR, "Failed to mkdir %s, errno=%d, %m\n", p, errno);

  prefix_ += p;
  append_component(prefix_, basename);
}

Path_Conf& Path_Conf::append(const char* sub)
{
  append_component(prefix_, sub);
  return *this;
}

void Path_Conf::fix(const char* name, const char* value)
{
  boost::algorithm::replace_all(prefix_, name, value);
}
