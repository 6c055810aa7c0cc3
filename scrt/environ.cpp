#include "scrt/environ.h"

#include "scrt/log.h"
#include "scrt/snprintf_t.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/RW_Thread_Mutex.h>

// The lock is constructed before, and destroyed after, static objects of usual priority, so that these can use the
// environment.
[[gnu::init_priority(101)]] static ACE_RW_Thread_Mutex g_env_mutex;

std::string get_env_r(const char* name)
{
  if (!name || !*name) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, name is NULL or \"\":\n%?\n");
    return std::string();
  }

  const ACE_Read_Guard<ACE_RW_Thread_Mutex> g(g_env_mutex);
  const char* const env = g.locked() ? ACE_OS::getenv(name) : nullptr;
  return env ? std::string(env) : std::string(); // copied before the guard lets go
}

static bool set_env_i(const char* name, const char* val)
{
  if (val)
    return ACE_OS::setenv(name, val, 1) == 0;

  // Kept as it is: removal answers the other way round. Callers get false when the variable is gone.
  return ACE_OS::unsetenv(name) != 0;
}

bool set_env(const char* name, const char* val)
{
  if (!name || !*name) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, name is NULL or \"\":\n%?\n");
    return false;
  }

  const ACE_Write_Guard<ACE_RW_Thread_Mutex> g(g_env_mutex);
  return g.locked() && set_env_i(name, val);
}

// Holds the lock from the reading to the writing, so that no other change gets in between. `name` is not empty.
static bool add_env(const char* name, const char* val, bool in_front)
{
  const ACE_Write_Guard<ACE_RW_Thread_Mutex> g(g_env_mutex);
  if (!g.locked())
    return false;

  const char* const old = ACE_OS::getenv(name);
  if (!old || !*old)
    return set_env_i(name, val);

  const snprintf_t<4096, char> buf("%s:%s", in_front ? val : old, in_front ? old : val);
  return set_env_i(name, buf.c_str()); // without memory, the text is cut to the room of the buffer
}

bool append_env(const char* name, const char* val)
{
  if (!name || !*name) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, name is NULL or \"\":\n%?\n");
    return false;
  }

  return add_env(name, val, false);
}

bool prepend_env(const char* name, const char* val)
{
  if (!name || !*name) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, name is NULL or \"\":\n%?\n");
    return false;
  }

  return add_env(name, val, true);
}
