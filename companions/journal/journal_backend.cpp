#include "companions/journal/journal_backend.h"

#include "companions/common/log_record.h"
#include "companions/journal/standard_error.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <ace/OS_Errno.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

enum { THREAD_NAME_SIZE = 16 }; // the kernel's limit, with the null character

// ---- To the journal and back

bool Journal_Backend::is_in_front() const
{
  return ACE_LOG_MSG->msg_backend() == this;
}

// Under one lock, so that no record finds both ways open, or none.
void Journal_Backend::divert_records(Echo echo)
{
  const Log_Lock lock;

  const u_long flags = ACE_LOG_MSG->flags();
  if (!is_behind_) { // or else it is called already, and to call the one in front would never end
    ACE_Log_Msg_Backend* const backend = ACE_LOG_MSG->msg_backend(this);
    former_backend_ = flags & ACE_Log_Msg::CUSTOM && backend != this ? backend : nullptr;
  }
  had_standard_error_ = (flags & ACE_Log_Msg::STDERR) != 0;
  echo_ = echo;
  is_installed_ = true;
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
  if (echo != Echo::ALL)
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
}

int Journal_Backend::install(const char* path, Echo echo)
{
  if (is_installed_) {
    errno = EALREADY;
    return -1;
  }
  if (socket_.open(path) != 0)
    return -1;

  const char* const component = std::getenv("COMPONENT");
  component_ = component ? component : "";
  divert_records(echo);
  return 0;
}

// A backend that somebody else has put in front of this one stays there, and so does this one behind it. This one also
// stays if there was none before: a thread that has looked up its way before may call it still, see log(). The
// framework asks no backend without the flag.
void Journal_Backend::restore_records()
{
  const Log_Lock lock;

  is_installed_ = false;
  if (had_standard_error_)
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::STDERR);
  is_behind_ = is_behind_ || !is_in_front();
  if (is_behind_)
    return;
  if (former_backend_)
    (void)ACE_LOG_MSG->msg_backend(former_backend_); // it returns this object
  else
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
}

void Journal_Backend::remove()
{
  if (!is_installed_)
    return;

  restore_records();
  socket_.close(); // no thread is in log() any more, or enters it with the intention to send
}

// ---- A record

// The syslog priority of a record. The framework's own way to the syslog has the same table.
static unsigned long journal_priority(ACE_UINT32 type)
{
  switch (type) {
  case LM_TRACE:
  case LM_DEBUG:
    return LOG_DEBUG;
  case LM_STARTUP:
  case LM_SHUTDOWN:
  case LM_INFO:
    return LOG_INFO;
  case LM_NOTICE:
    return LOG_NOTICE;
  case LM_WARNING:
    return LOG_WARNING;
  case LM_CRITICAL:
    return LOG_CRIT;
  case LM_ALERT:
    return LOG_ALERT;
  case LM_EMERGENCY:
    return LOG_EMERG;
  default:
    return LOG_ERR; // a priority of a service's own may mean anything, so it is not hidden
  }
}

// The newline that ends a record is the end of a line in a text file, and no part of an entry.
static std::string_view message_of(const ACE_Log_Record& record)
{
  std::string_view text = record.msg_data();
  if (!text.empty() && text.back() == '\n')
    text.remove_suffix(1);
  return text;
}

static void add_place(Journal_Entry& entry, ACE_Log_Msg& log)
{
  if (!log.file() || !*log.file())
    return;
  entry.add_text("CODE_FILE", log.file());
  entry.add_number("CODE_LINE", static_cast<unsigned long>(log.linenum()));
}

bool Journal_Backend::send(ACE_Log_Record& record)
{
  ACE_Log_Msg& log = *ACE_LOG_MSG;
  char thread_name[THREAD_NAME_SIZE] = "";
  (void)::prctl(PR_GET_NAME, thread_name); // cannot fail with this argument

  Journal_Entry entry;
  entry.add_text("MESSAGE", message_of(record));
  entry.add_number("PRIORITY", journal_priority(record.type()));
  entry.add_text("SYSLOG_IDENTIFIER", program_invocation_short_name);
  add_place(entry, log);
  if (log.op_status() == -1 && log.errnum() > 0)
    entry.add_number("ERRNO", static_cast<unsigned long>(log.errnum()));
  entry.add_number("TID", static_cast<unsigned long>(::gettid()));
  entry.add_text("THREAD_NAME", thread_name);
  if (!component_.empty())
    entry.add_text("STARTER_COMPONENT", component_);

  // Another thread's failure adds to the number meanwhile: what this entry tells is taken off at once.
  const unsigned long lost = lost_.exchange(0);
  if (lost != 0)
    entry.add_number("STARTER_LOST", lost);
  const bool is_sent = socket_.send(entry);
  if (!is_sent)
    lost_ += lost + 1;
  return is_sent;
}

// Whether standard error is to get a record from here, because the framework does not write it there. A record comes
// after remove() if its thread had looked up its way before and found only this one.
bool Journal_Backend::is_for_standard_error(bool is_sent) const
{
  if (!had_standard_error_ || echo_ == Echo::ALL)
    return false;
  return is_installed_ ? echo_ == Echo::LOST && !is_sent : is_in_front();
}

ssize_t Journal_Backend::log(ACE_Log_Record& record)
{
  const ACE_Errno_Guard guard(errno);

  if (is_enabled(record)) {
    const bool is_sent = is_installed_ && send(record);
    if (is_for_standard_error(is_sent))
      write_standard_error(record);
  }
  if (former_backend_)                  // it got records before, and gets them all
    (void)former_backend_->log(record); // the framework drops the result too
  return 0;
}
