#ifndef COMPANIONS_JOURNAL_JOURNAL_SOCKET_H
#define COMPANIONS_JOURNAL_JOURNAL_SOCKET_H

#include "companions/journal/journal_entry.h"

#include <sys/socket.h>
#include <sys/un.h>

/// The socket through which entries reach the journal.
class Journal_Socket
{
public:
  Journal_Socket() = default;
  ~Journal_Socket() { close(); }

  Journal_Socket(const Journal_Socket&) = delete;
  Journal_Socket& operator=(const Journal_Socket&) = delete;

  /// Get a socket for entries to the journal that listens at `path`, now or later: nobody has to be there yet.
  /// Returns 0, or -1 with errno: ENAMETOOLONG, or that of socket(2). One thread, while no other one sends.
  int open(const char* path);

  /// Give the socket back. One thread, while no other one sends.
  void close();

  /// Send `entry`. Returns false when the journal is not there or does not take the entry at once. Takes no memory and
  /// no lock, never waits, may change errno. Any thread, in signal handlers too.
  bool send(Journal_Entry& entry) const;

private:
  bool send_message(msghdr& message) const;
  bool send_file(Journal_Entry& entry) const;

  int fd_ = -1;
  sockaddr_un address_{};
};

#endif // COMPANIONS_JOURNAL_JOURNAL_SOCKET_H
