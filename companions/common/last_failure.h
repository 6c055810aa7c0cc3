#ifndef COMPANIONS_COMMON_LAST_FAILURE_H
#define COMPANIONS_COMMON_LAST_FAILURE_H

#include <ace/Log_Msg_Callback.h>

#include <atomic>
#include <cstddef>

/// Remembers the last record of the main thread that is an error or worse. Services are initialised and finalised
/// there, so that such a record tells why a service is missing or a reload was refused.
///
/// It is the callback of the framework's log, which each thread has for itself. Lives as long as the process.
class Last_Failure : public ACE_Log_Msg_Callback
{
public:
  enum { MAX_SIZE = 160 };

  /// Get the records of the calling thread from here on. Main thread.
  void install();

  /// Take install() back, unless somebody else gets the records by now: then this object stays. Main thread.
  void remove();

  /// Copy the first line of the text, or what fits into `text`, which has room for MAX_SIZE characters. Returns the
  /// number of characters, 0 without a failure or while it is written. Takes no lock. Any thread.
  std::size_t copy(char* text) const;

  /// Called by the framework, in signal handlers too.
  void log(ACE_Log_Record& record) override;

private:
  ACE_Log_Msg_Callback* former_ = nullptr;
  bool is_installed_ = false;
  std::atomic<unsigned> changes_{0}; // odd while the text changes
  std::atomic<std::size_t> size_{0};
  std::atomic<char> text_[MAX_SIZE] = {};
};

#endif // COMPANIONS_COMMON_LAST_FAILURE_H
