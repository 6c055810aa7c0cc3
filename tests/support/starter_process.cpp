#include "tests/support/starter_process.h"

#include "tests/support/manual_page.h"
#include "tests/support/wait_until.h"

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
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

static constexpr std::chrono::seconds PATIENCE(60); // long enough for a loaded machine under a sanitizer
static constexpr std::chrono::milliseconds POLL_INTERVAL(2);

// Whether every account may read and execute the file.
static bool is_public(const fs::path& file)
{
  const auto lets_in = [](const fs::path& path, fs::perms rights) {
    return (fs::status(path).permissions() & rights) == rights;
  };

  for (fs::path dir = file.parent_path(); dir.has_relative_path(); dir = dir.parent_path())
    if (!lets_in(dir, fs::perms::others_exec))
      return false;
  return lets_in(file, fs::perms::others_exec | fs::perms::others_read);
}

std::string public_path(const std::string& file)
{
  static const Temp_Dir copies;
  if (!fs::exists(file) || is_public(file))
    return file;

  const fs::path copy = copies / fs::path(file).filename();
  if (!fs::exists(copy)) {
    fs::copy_file(file, copy);
    fs::permissions(copy, fs::perms::all & ~(fs::perms::group_write | fs::perms::others_write));
  }
  return copy;
}

std::string starter_executable()
{
  const char* const name = std::getenv("STARTER_EXECUTABLE");
  return public_path(name && *name ? name : STARTER_BUILT_EXECUTABLE);
}

static std::string make_preload(const Start_Options& options)
{
  std::vector<std::string> libraries = options.preload;
  if (options.probe)
    libraries.push_back(public_path(TESTS_LOG_PROBE));

  std::string preload;
  for (const std::string& library : libraries)
    preload += (preload.empty() ? "" : ":") + library;
  return preload;
}

// The words that start the program. A wrapper itself preloads nothing: the libraries are meant for the program, and a
// library that is built with a sanitizer does not work in every tool.
static std::vector<std::string> make_words(const std::vector<std::string>& args, const Start_Options& options)
{
  std::vector<std::string> words = options.wrapper;
  if (words.empty())
    words.push_back(options.argv0);
  else
    for (const std::string& word : {std::string("env"), "LD_PRELOAD=" + make_preload(options), starter_executable()})
      words.push_back(word);

  words.insert(words.end(), args.begin(), args.end());
  return words;
}

static std::vector<std::string> make_environment(const Start_Options& options, const Temp_Dir& dir)
{
  std::map<std::string, std::string> env{{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}};
  for (const char* const name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS", "GCOV_PREFIX"})
    if (const char* const value = std::getenv(name))
      env[name] = value;

  if (options.probe)
    env["STARTER_LOG_PROBE"] = dir / "records";
  if (const std::string preload = make_preload(options); options.wrapper.empty() && !preload.empty())
    env["LD_PRELOAD"] = preload;

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
  std::vector<std::string> words = make_words(args, options);
  const std::string program = options.wrapper.empty() ? starter_executable() : words.front();
  std::vector<std::string> env = make_environment(options, dir_);
  if (options.probe)
    chmod(dir_.write("records", "").c_str(), 0666); // an account that the process becomes must be able to append
  const std::vector<char*> argv = make_pointers(words);
  const std::vector<char*> envp = make_pointers(env);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe");
  pid_ = fork();
  if (pid_ == 0) {
    setpgid(0, 0); // signals of a terminal or a test runner must not reach it
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

// Returns false at the end of the log, when no process holds the other end any more.
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

void Starter_Process::forget_log()
{
  read_log(0);
  log_.clear();
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
    // The log must be read meanwhile, or a full pipe holds the process back. At the end of the log poll would not wait.
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
  return process_status_field(pid_, name);
}

std::string process_status_field(pid_t pid, const std::string& name)
{
  std::istringstream status(read_file("/proc/" + std::to_string(pid) + "/status"));
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
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid_) + "/task", ignored))
    tids.push_back(static_cast<pid_t>(std::stol(entry.path().filename())));

  std::sort(tids.begin(), tids.end(),
            [this](pid_t l, pid_t r) { return (l == pid_) != (r == pid_) ? l == pid_ : l < r; });
  return tids;
}

bool waits_in_select(long call)
{
#ifdef SYS_select
  if (call == SYS_select)
    return true;
#endif
  return call == SYS_pselect6;
}

bool waits_in_epoll(long call)
{
#ifdef SYS_epoll_wait
  if (call == SYS_epoll_wait)
    return true;
#endif
  return call == SYS_epoll_pwait;
}

// The number of the system call that a process waits in, -1 while it runs.
static long waiting_call(pid_t pid)
{
  long call = -1;
  std::istringstream(read_file("/proc/" + std::to_string(pid) + "/syscall")) >> call;
  return call;
}

bool is_in_event_loop(pid_t pid)
{
  // A wrapper is not the program under test until it has executed it.
  const std::string name = fs::path(starter_executable()).filename();
  if (process_status_field(pid, "Name") != name.substr(0, 15))
    return false;

  const std::string caught = process_status_field(pid, "SigCgt");
  if (caught.empty() || (std::stoull(caught, nullptr, 16) >> (SIGTERM - 1) & 1) == 0)
    return false;

  // A signal handler may wait too, for a lock, but it holds its signal back from the thread.
  if (!signals_in_mask(process_status_field(pid, "SigBlk")).empty())
    return false;

  const long call = waiting_call(pid);
  return waits_in_epoll(call) || waits_in_select(call) || call == SYS_futex;
}

bool Starter_Process::wait_for_event_loop()
{
  const bool stopped = wait_until([this] { return is_in_event_loop(pid_) || !is_running(); });
  return stopped && is_running();
}

long Starter_Process::waiting_call() const
{
  return ::waiting_call(pid_);
}

// Whether every thread of the process waits for something.
static bool is_idle(const Starter_Process& starter)
{
  for (const pid_t tid : starter.threads()) {
    const std::string stat =
        read_file("/proc/" + std::to_string(starter.pid()) + "/task/" + std::to_string(tid) + "/stat");
    if (stat.find(") S ") == std::string::npos)
      return false;
  }
  return true;
}

bool Starter_Process::wait_until_idle()
{
  unsigned seen = 0;
  return wait_until([&] {
    seen = is_idle(*this) ? seen + 1 : 0;
    return seen == 50;
  });
}

bool Starter_Process::wait_until(const std::function<bool()>& condition)
{
  // The log is read meanwhile, or a full pipe would hold the process back.
  return ::wait_until([this, &condition] { return log(), condition(); });
}

bool Starter_Process::wait_for_threads(unsigned count)
{
  return wait_until([this, count] { return threads().size() == count; });
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
    expect_in_manual(record);
    records.push_back(record);
  }
  return records;
}

static bool starts_with(const std::string& text, const std::string& start)
{
  return text.compare(0, start.size(), start) == 0;
}

std::vector<Logged> Starter_Process::command_line_records() const
{
  std::vector<Logged> found;
  for (const Record& record : records()) {
    if (starts_with(record.text, "system info:") || starts_with(record.text, "Failed to get vm swappiness") ||
        starts_with(record.text, "Signal "))
      break;
    if (starts_with(record.file, "starter/") || starts_with(record.file, "scrt/"))
      found.push_back(with_file(record));
  }
  return found;
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

Start_Options with_fault(const std::string& variable, const std::string& value)
{
  Start_Options options = probed();
  options.preload.push_back(preload_library("faults"));
  options.env[variable] = value;
  return options;
}

std::string service_library(const std::string& target)
{
  return public_path(TESTS_SERVICE_DIR "/lib" + target + ".so");
}

std::string preload_library(const std::string& target)
{
  return public_path(TESTS_PRELOAD_DIR "/lib" + target + ".so");
}

std::string dynamic_directive(const std::string& service, const std::string& target, const std::string& factory,
                              const std::string& params)
{
  return "dynamic " + service + " Service_Object * " + service_library(target) + ':' + factory + "() \"" + params +
         "\"\n";
}
