#ifndef COMPANIONS_CONTROL_RECORD_CAPTURE_H
#define COMPANIONS_CONTROL_RECORD_CAPTURE_H

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>

#include <atomic>
#include <cstddef>
#include <set>
#include <string>

/// Learns from the records of the main thread which services are ended and started, and why one is not. The framework
/// tells most of that in its debug records, which are therefore switched on during a capture, and kept from the log
/// unless they were on already.
///
/// It is the callback of the main thread's log. There is one object, which lives as long as the process. It takes no
/// memory where it is called, as signal handlers write records too.
class Record_Capture : public ACE_Log_Msg_Callback
{
public:
  /// Get the records of the calling thread from here on. Main thread.
  void install();

  /// Take install() back, unless somebody else gets the records by now: then this object stays. Main thread.
  void remove();

  /// Begin a capture, with nothing in it. One at a time. Any thread.
  void begin();

  /// End the capture. What it has found stays until the next one begins. Any thread.
  void end();

  /// The services that have been started, and those that have been ended, since the capture began.
  std::set<std::string> started() const { return names('+'); }
  std::set<std::string> ended() const { return names('-'); }

  /// The services that could not be started, though they may have been later.
  std::set<std::string> failed() const { return names('!'); }

  /// The reason why the service `name` was not started the last time; empty if none is known.
  std::string reason(const std::string& name) const;

  /// The first failure that concerns no service, such as a file that cannot be read; empty for none.
  std::string general_reason() const { return general_; }

  /// Called by the framework, in signal handlers too.
  void log(ACE_Log_Record& record) override;

private:
  enum { EVENTS_SIZE = 1 << 18, NAME_SIZE = 256, REASON_SIZE = 512 };

  std::set<std::string> names(char kind) const;
  void note(const ACE_Log_Record& record);
  void note_event(char kind, const char* name, std::size_t size);
  void note_failure(const char* text, bool is_certain);
  bool is_kept_from_log(const ACE_Log_Record& record) const;

  ACE_Log_Msg_Callback* former_ = nullptr;
  bool is_installed_ = false;
  ACE_Log_Msg* main_log_ = nullptr;
  std::atomic<bool> is_on_{false};
  bool was_debug_on_ = false;
  u_long former_mask_ = 0;

  char events_[EVENTS_SIZE]; // "+NAME\n" for a start, "-NAME\n" for an end, "!NAME\nREASON\n" for a failure
  std::atomic<std::size_t> events_end_{0};
  char name_[NAME_SIZE] = "";     // of the service that is being loaded
  char reason_[REASON_SIZE] = ""; // why it fails
  bool is_certain_ = false;       // the reason: a later one does not replace it
  char general_[REASON_SIZE] = "";
};

#endif // COMPANIONS_CONTROL_RECORD_CAPTURE_H
