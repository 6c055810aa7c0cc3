#include "companions/journal/standard_error.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include <cerrno>
#include <string_view>

#include <sys/socket.h>
#include <unistd.h>

// Whether the text has gone, or cannot go, through a socket.
static bool is_done_by_socket(std::string_view text)
{
  return ::send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) != -1 || errno != ENOTSOCK;
}

static void write_text(std::string_view text)
{
  if (is_done_by_socket(text))
    return;

  while (!text.empty()) {
    const ssize_t n = ::write(STDERR_FILENO, text.data(), text.size());
    if (n > 0)
      text.remove_prefix(static_cast<std::size_t>(n));
    else if (errno != EINTR)
      return; // nothing is left to be done about it
  }
}

void write_standard_error(ACE_Log_Record& record)
{
  const u_long flags = ACE_LOG_MSG->flags();
  if (!(flags & (ACE_Log_Msg::VERBOSE | ACE_Log_Msg::VERBOSE_LITE))) {
    write_text(record.msg_data());
    return;
  }

  char text[ACE_Log_Record::MAXVERBOSELOGMSGLEN];
  if (record.format_msg(ACE_LOG_MSG->local_host(), flags, text, sizeof text) == 0)
    write_text(text);
}
