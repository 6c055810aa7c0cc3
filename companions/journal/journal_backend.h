#ifndef COMPANIONS_JOURNAL_JOURNAL_BACKEND_H
#define COMPANIONS_JOURNAL_JOURNAL_BACKEND_H

#include "companions/journal/journal_socket.h"

#include <ace/Basic_Types.h>
#include <ace/Log_Msg_Backend.h>

#include <atomic>
#include <string>

/// The records that standard error gets while the journal is the place of the log.
enum class Echo { LOST, ALL, NONE };

/// The end of the framework's log that sends each record to the journal.
///
/// It is the framework's custom backend: there is one in the process, for all threads, whenever they began. A callback
/// would be set for each thread anew, and threads that exist already would go without.
///
/// The framework calls log() under the lock of its log and with signals blocked. The same lock guards everything here
/// but the number of lost records.
class Journal_Backend : public ACE_Log_Msg_Backend
{
public:
  /// Records go to the journal that listens at `path`, from now on and in all threads. `echo` says what standard error
  /// still gets, if it got records before. Returns 0, or -1 with errno: EALREADY if this is so already, or that of
  /// Journal_Socket::open. Logs nothing.
  int install(const char* path, Echo echo);

  /// Records go where they went before install().
  void remove();

  /// The number of records that the journal did not get and that no entry has told it of yet. Any thread.
  unsigned long lost() const { return lost_; }

  int open(const char*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }

  /// Send `record`. Takes no memory and no lock; waits only where standard error makes its writers wait.
  ssize_t log(ACE_Log_Record& record) override;

private:
  void divert_records(Echo echo);
  void restore_records();
  bool send(ACE_Log_Record& record);
  bool is_in_front() const;
  bool is_for_standard_error(bool is_sent) const;

  Journal_Socket socket_;
  bool is_installed_ = false;
  bool is_behind_ = false; ///< somebody has put a backend in front of this one, which stays where it is from then on
  bool had_standard_error_ = false;
  ACE_Log_Msg_Backend* former_backend_ = nullptr; // null unless it was in use
  Echo echo_ = Echo::LOST;
  std::string component_; // read at the installation, as a signal handler cannot wait for the lock of the environment
  std::atomic<unsigned long> lost_{0};
};

#endif // COMPANIONS_JOURNAL_JOURNAL_BACKEND_H
