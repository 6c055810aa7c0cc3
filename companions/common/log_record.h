#ifndef COMPANIONS_COMMON_LOG_RECORD_H
#define COMPANIONS_COMMON_LOG_RECORD_H

#include <ace/Log_Category.h>
#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

/// Whether the framework writes records of the priority of `record`. Records that are made elsewhere and handed to the
/// log come by a custom backend without a look at their priority. Takes no lock. Any thread, in signal handlers too.
inline bool is_enabled(const ACE_Log_Record& record)
{
  const ACE_Log_Priority priority = static_cast<ACE_Log_Priority>(record.type());
  return (!record.category() || record.category()->log_priority_enabled(priority)) &&
         ACE_LOG_MSG->log_priority_enabled(priority);
}

/// Holds the lock of the framework's log, which may be taken again by the thread that holds it.
class Log_Lock
{
public:
  Log_Lock() { (void)ACE_LOG_MSG->acquire(); } // fails only for a lock that does not exist
  ~Log_Lock() { (void)ACE_LOG_MSG->release(); }

  Log_Lock(const Log_Lock&) = delete;
  Log_Lock& operator=(const Log_Lock&) = delete;
};

#endif // COMPANIONS_COMMON_LOG_RECORD_H
