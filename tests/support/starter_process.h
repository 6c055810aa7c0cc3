#ifndef TESTS_SUPPORT_STARTER_PROCESS_H
#define TESTS_SUPPORT_STARTER_PROCESS_H

#include "tests/support/log_capture.h"
#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

/// The ways in which the start of a process under test differs from the usual start.
struct Start_Options
{
  std::map<std::string, std::string> env; ///< added to the clean environment
  std::vector<std::string> wrapper;       ///< a program with its arguments that runs the executable in its place
  std::vector<std::string> preload;       ///< libraries to preload besides the probe
  bool probe = false;                     ///< preload the library that records() reads from
  uid_t uid = 0;                          ///< the account to start as, when started by root
  gid_t gid = 0;
  std::vector<gid_t> groups;
  std::string argv0 = "starter";
};

/// The usual start, with the probe.
inline Start_Options probed()
{
  Start_Options options;
  options.probe = true;
  return options;
}

/// The real executable as a process: in a clean environment, in a temporary directory of its own as working
/// directory, with its standard error captured. The destructor kills and reaps it.
/// The environment variable STARTER_EXECUTABLE names the executable to test instead of the one that was built.
class Starter_Process
{
public:
  explicit Starter_Process(const std::vector<std::string>& args, const Start_Options& options = {});
  ~Starter_Process();

  Starter_Process(const Starter_Process&) = delete;
  Starter_Process& operator=(const Starter_Process&) = delete;

  pid_t pid() const { return pid_; }
  const Temp_Dir& dir() const { return dir_; }

  /// The text that the process has written to standard error by now.
  std::string log();

  /// Wait until `text` stands in the log `count` times. False when the process ends or a minute passes before that.
  bool wait_for_record(const std::string& text, unsigned count = 1);

  /// How often `text` stands in the log by now.
  unsigned count(const std::string& text);

  /// Forget the text that the process has written by now: log(), count() and wait_for_record() begin anew.
  void forget_log();

  void send(int signo) const;
  void send_to_thread(pid_t tid, int signo) const;

  /// Wait for the end of the process. Returns its exit status, or the negative number of the signal that ended it, or
  /// -1000 when it still exists after a minute, and is killed. Reads the rest of the log.
  int wait_status();

  /// Whether the process has not ended yet.
  bool is_running();

  /// The result of process_status_field for the process.
  std::string status_field(const std::string& name) const;

  /// The ids of its threads, that of the main thread first.
  std::vector<pid_t> threads() const;

  /// Wait until the main thread rests in the event loop or waits for the threads that run it. The program has acted on
  /// its command line then. An earlier signal could interrupt the allocator, which the signal handlers need. False when
  /// the process ends or a minute passes before that.
  bool wait_for_event_loop();

  /// The number of the system call that the main thread waits in, -1 while it runs.
  long waiting_call() const;

  /// Wait until the process has `count` threads. False when a minute passes before that.
  bool wait_for_threads(unsigned count);

  /// Wait until the process has nothing left to do: every thread waits for something, many times in a row. False when
  /// a minute passes before that.
  bool wait_until_idle();

  /// Wait until `condition` holds. False when a minute passes before that.
  bool wait_until(const std::function<bool()>& condition);

  /// The records as the probe saw them, in order. They are complete only after the end of the process, because the text
  /// of a record reaches log() a moment earlier. Only with Start_Options::probe. The test fails for a record that the
  /// manual does not list.
  std::vector<Record> records() const;

  /// Those of records() that the program itself has written while it acted on its command line: they come before the
  /// system record and the first signal. Each has its source file.
  std::vector<Logged> command_line_records() const;

private:
  bool read_log(int timeout_msec);

  Temp_Dir dir_;
  pid_t pid_ = -1;
  int log_fd_ = -1;
  std::string log_;
  bool reaped_ = false;
  int status_ = 0;
};

/// The value of a line such as "SigCgt" in /proc/PID/status, without the blanks around it.
std::string process_status_field(pid_t pid, const std::string& name);

/// Whether the system call of this number is the wait of a reactor that is built on select, or on epoll.
bool waits_in_select(long call);
bool waits_in_epoll(long call);

/// Whether the process `pid` is the program under test and its main thread rests in the event loop, or in waiting for
/// the threads that run it.
bool is_in_event_loop(pid_t pid);

/// The path of the executable under test.
std::string starter_executable();

/// The signals whose bits are set in a mask as /proc/PID/status prints it.
std::vector<int> signals_in_mask(const std::string& hex);

/// The usual start, with the probe and with a failure of the call that `variable` chooses in the library "faults".
Start_Options with_fault(const std::string& variable, const std::string& value = "1");

/// A path of `file` for processes under test, which may run as other accounts. This is the path of a copy when the file
/// was built where only its owner has access, such as in a home directory. A missing file keeps its path.
std::string public_path(const std::string& file);

/// The path of a service library built with the tests, by the name of its target.
std::string service_library(const std::string& target);

/// The path of a library to preload that was built with the tests, by the name of its target.
std::string preload_library(const std::string& target);

/// A configuration directive that loads `factory` of the library `target` under the name `service`.
std::string dynamic_directive(const std::string& service, const std::string& target, const std::string& factory,
                              const std::string& params = "");

#endif // TESTS_SUPPORT_STARTER_PROCESS_H
