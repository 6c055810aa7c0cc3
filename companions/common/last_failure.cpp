#include "companions/common/last_failure.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include <algorithm>
#include <string_view>

enum { MAX_TRIES = 100 }; // the writer may have been stopped in the middle

void Last_Failure::install()
{
  if (is_installed_)
    return; // perhaps behind somebody who gets the records first, and hands them on

  is_installed_ = true;
  former_ = ACE_LOG_MSG->msg_callback(this);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

void Last_Failure::remove()
{
  if (!is_installed_ || ACE_LOG_MSG->msg_callback() != this)
    return;
  is_installed_ = false;
  // The flag is the whole process's, and does nothing to a thread without a callback: it stays.
  (void)ACE_LOG_MSG->msg_callback(former_); // it returns this object
}

// A reactor of the kind dev_poll writes it for each signal that interrupts its wait.
static bool is_about_signal(std::string_view line)
{
  static constexpr std::string_view END = "work_pending_i: Interrupted system call";
  return line.size() >= END.size() && line.substr(line.size() - END.size()) == END;
}

static std::string_view first_line(const ACE_Log_Record& record)
{
  const std::string_view text = record.msg_data();
  return text.substr(0, text.find('\n'));
}

// Only one thread writes. A reader that meets it reads again.
void Last_Failure::log(ACE_Log_Record& record)
{
  if (record.type() >= static_cast<ACE_UINT32>(LM_ERROR) && !is_about_signal(first_line(record))) {
    const std::string_view line = first_line(record).substr(0, MAX_SIZE);

    ++changes_;
    std::copy(line.begin(), line.end(), text_);
    size_ = line.size();
    ++changes_;
  }
  if (former_)
    former_->log(record);
}

std::size_t Last_Failure::copy(char* text) const
{
  for (int tries = 0; tries < MAX_TRIES; ++tries) {
    const unsigned before = changes_;
    const std::size_t size = size_;
    std::copy(text_, text_ + size, text);
    if (before % 2 == 0 && changes_ == before)
      return size;
  }
  return 0;
}
