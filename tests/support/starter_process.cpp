#include "tests/support/starter_process.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using Clock = std::chrono::steady_clock;

static constexpr std::chrono::seconds PATIENCE(60); // long enough for a loaded machine under a sanitizer
static constexpr std::chrono::milliseconds POLL_INTERVAL(2);

std::string executable()
{
  const char* const name = std::getenv("STARTER_EXECUTABLE");
  return name && *name ? name : STARTER_BUILT_EXECUTABLE;
}

static std::vector<std::string> make_environment(const Start_Options& options, const Temp_Dir& dir)
{
  std::map<std::string, std::string> env{{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}};
  for (const char* const name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS", "GCOV_PREFIX"})
    if (const char* const value = std::getenv(name))
      env[name] = value;

  std::vector<std::string> preload = options.preload;
  if (options.probe) {
    preload.push_back(TESTS_LOG_PROBE);
    env["STARTER_LOG_PROBE"] = dir / "records";
  }
  for (const std::string& library : preload)
    env["LD_PRELOAD"] += (env["LD_PRELOAD"].empty() ? "" : ":") + library;

  for (const auto& [name, value] : options.env)
    env[name] = value;

  std::vector<std::string> lines;
  for (const auto& [name, value] : env)
    lines.push_back(name + '=' + value);
  return lines;
}

static std::vector<char*> make_pointers(std::vector<std::string>& texts)
{
  std::vector<char*> pointers;
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

static void become(const Start_Options& options)
{
  if (options.uid == 0 && options.gid == 0 && options.groups.empty())
    return;

  if (setgroups(options.groups.size(), options.groups.data()) != 0 || setgid(options.gid) != 0 ||
      setuid(options.uid) != 0)
    _exit(126);
}

Starter_Process::Starter_Process(const std::vector<std::string>& args, const Start_Options& options)
{
  std::vector<std::string> words = options.wrapper;
  const std::string program = words.empty() ? executable() : words.front();
  words.push_back(words.empty() ? options.argv0 : executable());
  words.insert(words.end(), args.begin(), args.end());
  std::vector<std::string> env = make_environment(options, dir_);
  const std::vector<char*> argv = make_pointers(words);
  const std::vector<char*> envp = make_pointers(env);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe");
  pid_ = fork();
  if (pid_ == 0) {
    setpgid(0, 0); // a terminal's or a test runner's own signals are none of its business
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(fds[1], STDERR_FILENO);
    close(null);
    if (chdir(dir_.path().c_str()) != 0)
      _exit(126);
    become(options);
    execvpe(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }

  close(fds[1]);
  log_fd_ = fds[0];
  fcntl(log_fd_, F_SETFL, O_NONBLOCK);
}

Starter_Process::~Starter_Process()
{
  if (!reaped_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(log_fd_);
}

// False at the end of the log: nobody holds the other end any more.
bool Starter_Process::read_log(int timeout_msec)
{
  pollfd fd{log_fd_, POLLIN, 0};
  poll(&fd, 1, timeout_msec);

  char buf[65536];
  for (;;) {
    const ssize_t n = read(log_fd_, buf, sizeof buf);
    if (n == 0)
      return false;
    if (n < 0)
      return true;
    log_.append(buf, static_cast<std::size_t>(n));
  }
}

std::string Starter_Process::log()
{
  read_log(0);
  return log_;
}

static unsigned count_in(const std::string& log, const std::string& text)
{
  unsigned count = 0;
  for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size()))
    ++count;
  return count;
}

unsigned Starter_Process::count(const std::string& text)
{
  return count_in(log(), text);
}

bool Starter_Process::wait_for_record(const std::string& text, unsigned count)
{
  const Clock::time_point deadline = Clock::now() + PATIENCE;

  while (count_in(log_, text) < count) {
    if (Clock::now() > deadline)
      return false;
    if (!read_log(100))
      return count_in(log_, text) >= count;
  }
  return true;
}

void Starter_Process::send(int signo) const
{
  kill(pid_, signo);
}

void Starter_Process::send_to_thread(pid_t tid, int signo) const
{
  syscall(SYS_tgkill, pid_, tid, signo);
}

bool Starter_Process::is_running()
{
  if (!reaped_)
    reaped_ = waitpid(pid_, &status_, WNOHANG) == pid_;
  return !reaped_;
}

int Starter_Process::wait_status()
{
  const Clock::time_point deadline = Clock::now() + PATIENCE;

  while (is_running() && Clock::now() < deadline) {
    // The log must be read meanwhile, or a full pipe holds the process back; at its end there is nothing to wait on.
    if (!read_log(static_cast<int>(POLL_INTERVAL.count())))
      std::this_thread::sleep_for(POLL_INTERVAL);
  }
  if (!reaped_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
    reaped_ = true;
    read_log(0);
    return -1000;
  }

  read_log(0);
  return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
}

std::string Starter_Process::status_field(const std::string& name) const
{
  std::istringstream status(read_file("/proc/" + std::to_string(pid_) + "/status"));
  for (std::string line; std::getline(status, line);)
    if (line.compare(0, name.size() + 1, name + ':') == 0) {
      const std::size_t first = line.find_first_not_of(" \t", name.size() + 1);
      const std::size_t last = line.find_last_not_of(" \t");
      return first == std::string::npos ? "" : line.substr(first, last - first + 1);
    }
  return "";
}

std::vector<pid_t> Starter_Process::threads() const
{
  std::vector<pid_t> tids;
  std::error_code ignored; // an ended process has no threads
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task", ignored))
    tids.push_back(static_cast<pid_t>(std::stol(entry.path().filename())));

  std::sort(tids.begin(), tids.end(), [this](pid_t l, pid_t r) {
    return (l == pid_) != (r == pid_) ? l == pid_ : l < r;
  });
  return tids;
}

bool Starter_Process::wait_for_threads(unsigned count)
{
  const Clock::time_point deadline = Clock::now() + PATIENCE;

  while (threads().size() != count) {
    if (Clock::now() > deadline)
      return false;
    read_log(static_cast<int>(POLL_INTERVAL.count()));
  }
  return true;
}

std::vector<Record> Starter_Process::records() const
{
  std::vector<Record> records;
  std::istringstream in(read_file(dir_ / "records"));
  std::size_t length = 0;
  for (Record record; in >> record.priority >> record.status >> record.error >> record.file >> record.line >> length;) {
    in.get();
    record.text.resize(length);
    in.read(record.text.data(), static_cast<std::streamsize>(length));
    records.push_back(record);
  }
  return records;
}

std::vector<int> signals_in_mask(const std::string& hex)
{
  const unsigned long long mask = std::stoull(hex, nullptr, 16);
  std::vector<int> signals;
  for (int signo = 1; signo <= 64; ++signo)
    if (mask >> (signo - 1) & 1)
      signals.push_back(signo);
  return signals;
}

std::string service_library(const std::string& target)
{
  return std::string(TESTS_SERVICE_DIR) + "/lib" + target + ".so";
}

std::string dynamic_directive(const std::string& service, const std::string& target, const std::string& factory,
                              const std::string& params)
{
  return "dynamic " + service + " Service_Object * " + service_library(target) + ':' + factory + "() \"" + params +
         "\"\n";
}
