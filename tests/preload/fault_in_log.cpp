// This library is preloaded into a process under test. Every attempt to log an alert record ends in a fault, or, with
// FAULT_IN_RECORD in the environment, that to log a record whose format begins with its value.

#include <ace/Log_Category.h>
#include <ace/Log_Msg.h>

#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

static bool is_to_fault(const char* format, ACE_Log_Priority priority)
{
  const char* const begin = std::getenv("FAULT_IN_RECORD");
  return begin ? std::strncmp(format, begin, std::strlen(begin)) == 0 : priority == LM_ALERT;
}

ssize_t ACE_Log_Msg::log(const char* format, ACE_Log_Priority priority, va_list args, ACE_Log_Category_TSS* category)
{
  using log_t = ssize_t (*)(ACE_Log_Msg*, const char*, ACE_Log_Priority, va_list, ACE_Log_Category_TSS*);
  static const log_t next = reinterpret_cast<log_t>(
      ::dlsym(RTLD_NEXT, "_ZN11ACE_Log_Msg3logEPKc16ACE_Log_PriorityP13__va_list_tagP20ACE_Log_Category_TSS"));

  if (is_to_fault(format, priority)) {
    volatile int* volatile const nothing = nullptr;
    *nothing = 1;
  }
  return next(this, format, priority, args, category);
}
