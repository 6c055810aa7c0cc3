#include "check/library_probe.h"

#include <ace/DLL.h>
#include <ace/Service_Config.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <list>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using Clock = std::chrono::steady_clock;

// The process answers with a letter, a text and perhaps a second text, each ended by a zero byte. Its last answer is
// "E", so that a library which ends the process by itself cannot be taken for one that loads.
static void answer(int fd, const std::string& text)
{
  for (std::size_t at = 0; at <= text.size();) {
    const ssize_t n = write(fd, text.c_str() + at, text.size() + 1 - at);
    if (n < 0 && errno != EINTR)
      _exit(1);
    at += n > 0 ? static_cast<std::size_t>(n) : 0;
  }
}

static std::string one_line(const char* words)
{
  std::string line = words && *words ? words : "no reason given";
  for (std::size_t at; (at = line.find('\n')) != std::string::npos;)
    line.replace(at, 1, "; ");
  return line;
}

static void leave_streams()
{
  const int null = open("/dev/null", O_RDWR);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    dup2(null, fd);
}

// "F" for a function, "O" for data, and an empty text for anything else.
static std::string symbol_letter(const void* symbol)
{
  Dl_info info;
  void* entry = nullptr;
  if (dladdr1(symbol, &info, &entry, RTLD_DL_SYMENT) == 0 || !entry || info.dli_saddr != symbol)
    return "";

  const int type = ELF64_ST_TYPE(static_cast<const ElfW(Sym)*>(entry)->st_info); // the macro for 32 bits is the same
  return type == STT_FUNC ? "F" : type == STT_OBJECT ? "O" : "";
}

static void answer_symbol(int fd, ACE_DLL& dll, const std::string& name)
{
  const void* const symbol = dll.symbol(name.c_str());
  if (!symbol)
    answer(fd, "S"), answer(fd, name), answer(fd, one_line(dll.error()));
  else if (const std::string letter = symbol_letter(symbol); !letter.empty())
    answer(fd, letter), answer(fd, name);
}

static bool has_static_descriptor(const std::string& name)
{
  return ACE_Service_Config::global()->find_static_svc_descriptor(name.c_str()) == 0;
}

// The configurator makes a service of each descriptor that is linked statically when it opens. A descriptor that a
// library brings along later is a factory only, unless the library has the configurator process it.
static std::set<std::string> linked_services(const Library_Request& request)
{
  std::set<std::string> services;
  for (const std::string& name : request.statics)
    if (has_static_descriptor(name))
      services.insert(name);
  return services;
}

static bool is_processed(const std::string& name)
{
  return ACE_Service_Config::global()->find(name.c_str(), nullptr, false) == 0;
}

// Open the library with all of its functions bound. A library that cannot be opened in this way has run no code, and
// may still be opened as the host does it: only then is the reason an answer.
static bool open_bound(int fd, ACE_DLL& dll, const std::string& library)
{
  const unsigned mode = ACE_DEFAULT_SHLIB_MODE;
  ACE_DLL bound;
  if (bound.open(library.c_str(), static_cast<int>((mode & ~RTLD_LAZY) | RTLD_NOW)) == 0)
    return dll.open(library.c_str()) == 0;

  answer(fd, "B"), answer(fd, one_line(bound.error()));
  return false;
}

[[noreturn]] static void run_probe(const Library_Request& request, int fd)
{
  const std::set<std::string> services = linked_services(request);
  const struct rlimit no_core = {0, 0};
  (void)setrlimit(RLIMIT_CORE, &no_core); // a crash of the library is reported in words and needs no core image
  leave_streams();

  std::list<ACE_DLL> loaded; // a library that cannot be loaded has a finding of its own and is passed over here
  for (const std::string& library : request.loaded) {
    loaded.emplace_back();
    (void)loaded.back().open(library.c_str());
  }

  ACE_DLL dll;
  if (request.library && !open_bound(fd, dll, *request.library) && dll.open(request.library->c_str()) != 0)
    answer(fd, "L"), answer(fd, one_line(dll.error()));
  else
    for (const std::string& symbol : request.symbols)
      answer_symbol(fd, dll, symbol);

  for (const std::string& name : request.factories)
    if (!has_static_descriptor(name))
      answer(fd, "S"), answer(fd, name), answer(fd, "no such static factory");
  for (const std::string& name : request.statics)
    if (services.count(name) == 0 && !is_processed(name))
      answer(fd, "N"), answer(fd, name);

  answer(fd, "E");
  _exit(0); // exit() would run the exit handlers of the libraries
}

static std::string next_text(const std::string& answers, std::size_t& at)
{
  std::string text = at < answers.size() ? answers.c_str() + at : ""; // a text that has not arrived yet counts as empty
  at += text.size() + 1;
  return text;
}

// Whether the last answer has arrived. A letter is told from a text by its place, as any text may look like a letter.
static bool parse_answers(const std::string& answers, Library_Result& result)
{
  for (std::size_t at = 0; at < answers.size();) {
    const std::string letter = next_text(answers, at);
    if (letter == "E")
      return true;
    if (letter == "B")
      result.bind_error = next_text(answers, at);
    if (letter == "L")
      result.error = next_text(answers, at);
    if (letter == "F")
      result.functions.insert(next_text(answers, at));
    if (letter == "N")
      result.missing_statics.insert(next_text(answers, at));
    if (letter == "O")
      result.objects.insert(next_text(answers, at));
    if (letter == "S") {
      const std::string name = next_text(answers, at);
      result.errors[name] = next_text(answers, at);
    }
  }
  return false;
}

// Read until the last answer has arrived or the other end is closed. False when neither happens in time.
static bool read_answers(int fd, std::string& answers, unsigned timeout_sec)
{
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout_sec);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd ready = {fd, POLLIN, 0};
    if (left <= 0)
      return false;
    if (poll(&ready, 1, static_cast<int>(left)) <= 0)
      continue;

    char buf[4096];
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n == 0)
      return true;
    if (n > 0)
      answers.append(buf, static_cast<std::size_t>(n));
    Library_Result ignored;
    if (parse_answers(answers, ignored))
      return true; // a process that the library has started may keep the other end open
  }
}

static std::string describe_end(int status)
{
  if (WIFSIGNALED(status))
    return "loading it ends the process with signal " + std::to_string(WTERMSIG(status)) + " (" +
           strsignal(WTERMSIG(status)) + ')';
  return "loading it ends the process with status " + std::to_string(WEXITSTATUS(status));
}

Library_Result probe_library(const Library_Request& request, unsigned timeout_sec)
{
  Library_Result result;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    return result;

  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    run_probe(request, fds[1]);
  }
  close(fds[1]);
  if (pid < 0) {
    close(fds[0]);
    return result;
  }

  std::string answers;
  const bool in_time = read_answers(fds[0], answers, timeout_sec);
  close(fds[0]);
  if (!in_time)
    kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
    continue;

  result.is_probed = true;
  if (!in_time)
    result.error = "loading it does not end within " + std::to_string(timeout_sec) + " seconds";
  else if (!parse_answers(answers, result))
    result.error = describe_end(status);
  return result;
}
