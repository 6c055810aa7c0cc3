#ifndef COMPANIONS_COMMON_SIGNAL_CHAIN_H
#define COMPANIONS_COMMON_SIGNAL_CHAIN_H

#include <signal.h>

/// A signal handler in front of the one that a signal has had so far. It keeps the mask and the flags of that one, and
/// calls it. One object for each signal, which lives as long as the process.
class Signal_Chain
{
public:
  using Handler = void (*)(int signo, siginfo_t* info, void* context);

  constexpr Signal_Chain(int signo, Handler handler) : signo_(signo), handler_(handler) {}

  int signo() const { return signo_; }

  /// Install the handler. Does nothing when the signal has no handler, or when this one is still called because of an
  /// earlier insert(). Main thread.
  void insert();

  /// Give the signal its former handler back, unless somebody else has put a handler in front of this one: then this
  /// one goes on to be called. Main thread.
  void remove();

  /// Call the former handler. In the handler, any thread.
  void call_former(siginfo_t* info, void* context) const;

private:
  const int signo_;
  const Handler handler_;
  struct sigaction former_ = {};
  bool is_inserted_ = false;
};

#endif // COMPANIONS_COMMON_SIGNAL_CHAIN_H
