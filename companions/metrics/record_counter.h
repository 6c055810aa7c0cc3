#ifndef COMPANIONS_METRICS_RECORD_COUNTER_H
#define COMPANIONS_METRICS_RECORD_COUNTER_H

#include <starter/metrics.h>

#include <ace/Log_Msg_Backend.h>

/// Counts the records of the process by their priority, and leaves them alone otherwise.
///
/// It is the framework's custom backend, as is that of the companion journal: there is one in the process, for all
/// threads. One that was there before gets each record too. It stays when the service ends, as another one may be in
/// front of it by then. The framework calls log() under the lock of its log and with signals blocked.
class Record_Counter : public ACE_Log_Msg_Backend
{
public:
  /// Count from now on. Does nothing when this is so already. Returns 0, or -1 with errno. Main thread.
  int install();

  int open(const char*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }

  /// Count `record`. Takes no memory and no lock.
  ssize_t log(ACE_Log_Record& record) override;

private:
  enum { PRIORITIES = 12 };

  bool is_installed_ = false;
  ACE_Log_Msg_Backend* former_backend_ = nullptr; // null unless it was in use
  starter::Counter* counters_[PRIORITIES] = {};
};

#endif // COMPANIONS_METRICS_RECORD_COUNTER_H
