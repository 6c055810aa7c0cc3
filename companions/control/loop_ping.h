#ifndef COMPANIONS_CONTROL_LOOP_PING_H
#define COMPANIONS_CONTROL_LOOP_PING_H

#include <ace/Event_Handler.h>

#include <atomic>

/// Finds out whether the event loop answers, without a lock: the loop watches a descriptor of this object, which a
/// question makes ready. Lives as long as the process.
class Loop_Ping : public ACE_Event_Handler
{
public:
  Loop_Ping();

  /// Have the process-wide reactor watch the descriptor. Returns 0, or -1 with errno. Main thread.
  int start();

  /// Take start() back. Main thread.
  void stop();

  /// Ask the loop. Returns the number of the question. Any thread; never waits.
  unsigned ask();

  /// Whether the loop has answered the question of this number. Any thread.
  bool has_answered(unsigned question) const;

  ACE_HANDLE get_handle() const override { return fd_; }
  int handle_input(ACE_HANDLE) override;

private:
  int fd_ = -1;
  bool is_started_ = false;
  std::atomic<unsigned> asked_{0};
  std::atomic<unsigned> answered_{0};
};

#endif // COMPANIONS_CONTROL_LOOP_PING_H
