#include "tests/support/log_capture.h"

#include "tests/support/manual_page.h"

#include <ace/Log_Msg.h>

#include <algorithm>

std::ostream& operator<<(std::ostream& out, const Record& record)
{
  return out << "priority=" << record.priority << " status=" << record.status << " errno=" << record.error << ' '
             << record.file << ':' << record.line << ' ' << record.text;
}

Log_Capture::Log_Capture() : previous_(ACE_LOG_MSG->msg_callback()), flags_(ACE_LOG_MSG->flags())
{
  ACE_LOG_MSG->msg_callback(this);
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Log_Capture::~Log_Capture()
{
  std::for_each(records_.begin(), records_.end(), expect_in_manual);
  ACE_LOG_MSG->msg_callback(previous_);
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
  ACE_LOG_MSG->set_flags(flags_);
}

void Log_Capture::log(ACE_Log_Record& record)
{
  ACE_Log_Msg* const log_msg = ACE_LOG_MSG;
  records_.push_back({static_cast<int>(record.type()), log_msg->op_status(), log_msg->errnum(),
                      log_msg->file() ? log_msg->file() : "", log_msg->linenum(), record.msg_data()});
}
