#ifndef BENCH_PROCESS_H
#define BENCH_PROCESS_H

#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using Words = std::vector<std::string>;

inline Words operator+(Words words, const Words& more)
{
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

/// Returns the seconds of a clock, the monotonic one unless told otherwise.
inline double seconds_now(clockid_t clock = CLOCK_MONOTONIC)
{
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Tell why a measurement has failed. Returns the exit status of the program.
inline int tell(const std::exception& failure)
{
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}

/// A process under measurement, whose standard error stream is read. Its environment has nothing but what it is given.
/// Failures are thrown: a row without its process has nothing to measure. The destructor kills what still runs, so that
/// every main has to catch what is thrown and tell() it: nobody unwinds the stack for an exception that is not caught.
class Process
{
public:
  explicit Process(const Words& words, Words environment = {});
  ~Process();

  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  const std::string& log() const { return log_; }

  /// Read until the process has written `text`.
  void wait_for(const std::string& text);

  /// Send the signal and wait for the end. Returns the processor time, in seconds, of the process and of its children.
  double end(int signo = SIGTERM);

  /// Returns the processor time, in seconds, that the process has used up to now.
  double cpu_seconds() const;

private:
  bool read_some(int timeout_msec);

  pid_t pid_ = -1;
  int log_fd_ = -1;
  std::string log_;
};

inline Process::Process(const Words& words, Words environment)
{
  std::vector<char*> argv;
  for (const std::string& word : words)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (std::string& variable : environment)
    envp.push_back(variable.data());
  envp.push_back(nullptr);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  log_fd_ = fds[0];
  if (error != 0)
    throw std::runtime_error("cannot start " + words[0]);
}

inline Process::~Process()
{
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(log_fd_);
}

inline bool Process::read_some(int timeout_msec)
{
  pollfd ready = {log_fd_, POLLIN, 0};
  if (poll(&ready, 1, timeout_msec) != 1)
    throw std::runtime_error("no sign of life: " + log_);

  char buf[4096];
  const ssize_t n = read(log_fd_, buf, sizeof buf);
  if (n > 0)
    log_.append(buf, static_cast<std::size_t>(n));
  return n > 0;
}

inline void Process::wait_for(const std::string& text)
{
  while (log_.find(text) == std::string::npos)
    if (!read_some(60000))
      throw std::runtime_error("ended early: " + log_);
}

inline double Process::end(int signo)
{
  kill(pid_, signo);
  while (read_some(60000))
    ;

  int status = 0;
  rusage usage = {};
  wait4(std::exchange(pid_, -1), &status, 0, &usage);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("ended in disorder: " + log_);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

inline double Process::cpu_seconds() const
{
  clockid_t clock = 0;
  if (clock_getcpuclockid(pid_, &clock) != 0)
    throw std::runtime_error("has ended: " + log_);
  return seconds_now(clock);
}

#endif // BENCH_PROCESS_H
