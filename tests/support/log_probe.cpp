// This library is preloaded into a process under test. It appends every log record, with the fields that the text alone
// does not show, to the file that STARTER_LOG_PROBE names. A record is one line of fields, priority, status, errno,
// file and line, then the length of the text and the text itself. The file is opened for each record, so it also works
// for a process that closes all its descriptors to become a daemon.

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{
class Log_Probe : public ACE_Log_Msg_Backend
{
public:
  int open(const char*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override;
};

char file_name[4096];

ssize_t Log_Probe::log(ACE_Log_Record& record)
{
  ACE_Log_Msg* const log_msg = ACE_LOG_MSG;
  static thread_local char line[16384];

  const int len = std::snprintf(line, sizeof line, "%d %d %d %s %d %zu\n%s\n", static_cast<int>(record.type()),
                                log_msg->op_status(), log_msg->errnum(), log_msg->file() ? log_msg->file() : "?",
                                log_msg->linenum(), std::strlen(record.msg_data()), record.msg_data());
  const int fd = ::open(file_name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (fd == -1)
    return -1;
  const ssize_t written = ::write(fd, line, static_cast<std::size_t>(len));
  ::close(fd);

  return written;
}

__attribute__((constructor)) void install()
{
  const char* const name = std::getenv("STARTER_LOG_PROBE");
  if (!name || std::strlen(name) >= sizeof file_name)
    return;
  std::strcpy(file_name, name);

  static Log_Probe* const probe = new Log_Probe; // records are written until the very end of the process
  ACE_Log_Msg::msg_backend(probe);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
}
} // namespace
