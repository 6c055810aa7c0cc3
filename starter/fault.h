#ifndef STARTER_FAULT_H
#define STARTER_FAULT_H

#include <csignal>

/// The signals that are faults. An alarm and a used-up processor time are among them on purpose.
constexpr int FAULT_SIGNALS[] = {SIGILL, SIGSEGV, SIGFPE, SIGALRM, SIGXCPU, SIGBUS, SIGABRT};

/// The signal handler for faults: log the signal with a back trace and end the process, with status 0.
void sig_abnormal_terminate(int signo);

/// For std::set_terminate: log the exception that nothing caught, with a back trace, and abort. Entered again, for
/// instance because there is no exception, it aborts at once.
[[noreturn]] void handle_terminate();

#endif // STARTER_FAULT_H
