#include "starter/starter.h"
#include "tests/support/log_capture.h"
#include "tests/support/logged.h"

#include <ace/ACE.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <set>

#include <signal.h>

namespace
{
struct sigaction disposition(int signo)
{
  struct sigaction action;
  sigaction(signo, nullptr, &action);
  return action;
}

bool same(const struct sigaction& l, const struct sigaction& r)
{
  return l.sa_handler == r.sa_handler && l.sa_flags == r.sa_flags;
}

const std::set<int> TERMINATIONS{SIGINT, SIGQUIT, SIGTERM};
const std::set<int> FAULTS{SIGILL, SIGSEGV, SIGFPE, SIGALRM, SIGXCPU, SIGBUS, SIGABRT};
const std::set<int> IGNORED{SIGPIPE, SIGIO, SIGURG};
} // namespace

TEST(signal_handlers, touches_no_other_signal)
{
  struct sigaction before[SIGSYS + 1];
  for (int signo = 1; signo <= SIGSYS; ++signo)
    before[signo] = disposition(signo);

  init_signal_handlers();

  for (int signo = 1; signo <= SIGSYS; ++signo) {
    SCOPED_TRACE(strsignal(signo));
    const bool ours =
        TERMINATIONS.count(signo) || FAULTS.count(signo) || IGNORED.count(signo) || signo == SIGHUP || signo == SIGUSR2;
    EXPECT_EQ(!ours, same(before[signo], disposition(signo)));
  }
}

TEST(signal_handlers, gives_each_group_a_handler_of_its_own)
{
  init_signal_handlers();

  for (const int signo : TERMINATIONS)
    EXPECT_EQ(disposition(SIGTERM).sa_handler, disposition(signo).sa_handler) << strsignal(signo);
  for (const int signo : FAULTS)
    EXPECT_EQ(disposition(SIGSEGV).sa_handler, disposition(signo).sa_handler) << strsignal(signo);
  for (const int signo : IGNORED)
    EXPECT_EQ(SIG_IGN, disposition(signo).sa_handler) << strsignal(signo);

  const std::set<sighandler_t> handlers{disposition(SIGTERM).sa_handler,
                                        disposition(SIGSEGV).sa_handler,
                                        disposition(SIGHUP).sa_handler,
                                        disposition(SIGUSR2).sa_handler,
                                        SIG_IGN,
                                        SIG_DFL};
  EXPECT_EQ(6u, handlers.size());
}

TEST(signal_handlers, asks_for_no_flags_and_blocks_nothing_else)
{
  const int restorer = 0x04000000; // the C library always sets this flag

  init_signal_handlers();

  for (const int signo : {SIGINT, SIGQUIT, SIGTERM, SIGILL, SIGSEGV, SIGFPE, SIGALRM, SIGXCPU, SIGBUS, SIGABRT, SIGHUP,
                          SIGUSR2, SIGPIPE, SIGIO, SIGURG}) {
    SCOPED_TRACE(strsignal(signo));
    const struct sigaction action = disposition(signo);
    EXPECT_EQ(0, action.sa_flags & ~restorer);
    for (int other = 1; other <= SIGRTMAX; ++other)
      EXPECT_NE(1, sigismember(&action.sa_mask, other)) << other;
  }
}

TEST(signal_handlers, user_signal_2_toggles_debugging_and_says_so_first)
{
  init_signal_handlers();
  const bool before = ACE::debug();
  ACE::debug(false);
  Log_Capture log;

  raise(SIGUSR2);
  EXPECT_TRUE(ACE::debug());
  raise(SIGUSR2);
  EXPECT_FALSE(ACE::debug());

  ACE::debug(before);
  ASSERT_EQ(2u, log.records().size());
  const char source[] = "starter/starter.cpp";
  EXPECT_EQ(info("Enable ACE::debug.\n").in(source), with_file(log.records()[0]));
  EXPECT_EQ(info("Disable ACE::debug.\n").in(source), with_file(log.records()[1]));
}

TEST(signal_handlers, leave_errno_as_they_found_it)
{
  init_signal_handlers();
  const Log_Capture log;

  for (const int signo : {SIGUSR2, SIGUSR2, SIGHUP, SIGTERM}) {
    SCOPED_TRACE(strsignal(signo));
    errno = 4711;
    raise(signo);
    EXPECT_EQ(4711, errno);
  }
}
