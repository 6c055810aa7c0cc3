#include "companions/metrics/record_counter.h"

#include "companions/common/log_record.h"

namespace
{
struct Priority
{
  ACE_Log_Priority value;
  const char* name;
};
} // namespace

// Services may have priorities of their own, which count as the last one.
static const Priority PRIORITY_NAMES[] = {
    {LM_SHUTDOWN, "shutdown"}, {LM_TRACE, "trace"},     {LM_DEBUG, "debug"},         {LM_INFO, "info"},
    {LM_NOTICE, "notice"},     {LM_WARNING, "warning"}, {LM_STARTUP, "startup"},     {LM_ERROR, "error"},
    {LM_CRITICAL, "critical"}, {LM_ALERT, "alert"},     {LM_EMERGENCY, "emergency"}, {LM_MAX, "other"},
};

int Record_Counter::install()
{
  if (is_installed_)
    return 0;
  static_assert(sizeof PRIORITY_NAMES / sizeof *PRIORITY_NAMES == PRIORITIES);
  for (int i = 0; i < PRIORITIES; ++i) {
    counters_[i] = starter::counter("starter_records_total", "Log records of the process.",
                                    {{"priority", PRIORITY_NAMES[i].name}});
    if (!counters_[i])
      return -1;
  }

  const Log_Lock lock;
  const bool is_used = (ACE_LOG_MSG->flags() & ACE_Log_Msg::CUSTOM) != 0;
  ACE_Log_Msg_Backend* const backend = ACE_LOG_MSG->msg_backend(this);
  former_backend_ = is_used ? backend : nullptr;
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
  is_installed_ = true;
  return 0;
}

ssize_t Record_Counter::log(ACE_Log_Record& record)
{
  if (is_enabled(record)) {
    int i = 0;
    while (i < PRIORITIES - 1 && static_cast<ACE_UINT32>(PRIORITY_NAMES[i].value) != record.type())
      ++i;
    counters_[i]->increment();
  }
  if (former_backend_)                  // it got records before, and gets them all
    (void)former_backend_->log(record); // the framework drops the result too
  return 0;
}
