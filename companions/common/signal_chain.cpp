#include "companions/common/signal_chain.h"

static bool has_handler(const struct sigaction& action)
{
  return (action.sa_flags & SA_SIGINFO) != 0 || (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
}

void Signal_Chain::insert()
{
  if (is_inserted_)
    return;

  // The former handler is known before a signal can come in between.
  if (::sigaction(signo_, nullptr, &former_) != 0 || !has_handler(former_))
    return;
  struct sigaction action = former_;
  action.sa_flags |= SA_SIGINFO; // a former handler may want what comes with the signal
  action.sa_sigaction = handler_;
  is_inserted_ = ::sigaction(signo_, &action, nullptr) == 0;
}

void Signal_Chain::remove()
{
  struct sigaction present = {};
  if (!is_inserted_ || ::sigaction(signo_, nullptr, &present) != 0)
    return;
  if ((present.sa_flags & SA_SIGINFO) == 0 || present.sa_sigaction != handler_)
    return;

  is_inserted_ = ::sigaction(signo_, &former_, nullptr) != 0;
}

void Signal_Chain::call_former(siginfo_t* info, void* context) const
{
  if ((former_.sa_flags & SA_SIGINFO) != 0)
    former_.sa_sigaction(signo_, info, context);
  else
    former_.sa_handler(signo_);
}
