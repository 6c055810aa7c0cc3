#include "ctl/command_run.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr std::size_t MAX_BYTES = 4U << 20;

static std::vector<char*> pointers_to(std::vector<std::string>& texts)
{
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

[[noreturn]] static void execute(char* const* argv, char* const* envp, const std::function<int()>& prepare, int out,
                                 int err)
{
  const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (dup2(null, STDIN_FILENO) == -1 || dup2(out, STDOUT_FILENO) == -1 || dup2(err, STDERR_FILENO) == -1)
    _exit(127);
  if (prepare() == 0)
    execve(argv[0], argv, envp);
  (void)dprintf(STDERR_FILENO, "cannot execute %s: %s\n", argv[0], std::strerror(errno)); // nobody else could be told
  _exit(127);
}

// Reads from both pipes until the other ends are closed. Returns a text as Command_Run::problem.
static const char* read_both(Descriptor& out, Descriptor& err, Command_Run& run, Deadline deadline)
{
  Descriptor* const pipes[] = {&out, &err};
  std::string* const texts[] = {&run.out, &run.err};
  while (out.get() != -1 || err.get() != -1) {
    pollfd entries[] = {{out.get(), POLLIN, 0}, {err.get(), POLLIN, 0}}; // poll() passes over the descriptor -1
    const int n = poll(entries, 2, msec_until(deadline));
    if (n == 0)
      return "has not ended in time";
    for (int i = 0; i < 2; ++i) {
      if (n < 0 || entries[i].revents == 0)
        continue;
      char buf[65536];
      const ssize_t size = read(pipes[i]->get(), buf, sizeof buf);
      if (size > 0)
        texts[i]->append(buf, static_cast<std::size_t>(size));
      else if (size == 0 || errno != EINTR)
        pipes[i]->reset();
      if (texts[i]->size() > MAX_BYTES)
        return "has written too much";
    }
  }
  return "";
}

// The command may have closed its streams and go on: it gets the rest of its time, in which the kernel is asked now and
// then, as there is no wait with a deadline.
static const char* wait_for_end(pid_t pid, int& status, Deadline deadline)
{
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (msec_until(deadline) == 0)
      return "has not ended in time";
    (void)poll(nullptr, 0, 10);
  }
  return "";
}

namespace
{
struct Pipe
{
  Descriptor reader;
  Descriptor writer;

  bool open()
  {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
      return false;
    reader.reset(fds[0]);
    writer.reset(fds[1]);
    return true;
  }
};
} // namespace

static Command_Run fail(const char* problem)
{
  Command_Run run;
  run.problem = problem;
  return run;
}

Command_Run run_command(std::vector<std::string> command, std::vector<std::string> environment,
                        const std::function<int()>& prepare, Deadline deadline)
{
  Pipe out;
  Pipe err;
  if (!out.open() || !err.open())
    return fail("cannot be executed for want of a pipe");
  const std::vector<char*> argv = pointers_to(command);
  const std::vector<char*> envp = pointers_to(environment);
  const pid_t pid = fork();
  if (pid == 0)
    execute(argv.data(), envp.data(), prepare, out.writer.get(), err.writer.get());
  if (pid == -1)
    return fail("cannot be executed for want of a process");
  out.writer.reset();
  err.writer.reset();

  Command_Run run;
  int status = 0;
  run.problem = read_both(out.reader, err.reader, run, deadline);
  if (run.problem.empty())
    run.problem = wait_for_end(pid, status, deadline);
  if (run.problem.empty()) {
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
  }
  (void)kill(pid, SIGKILL); // it may have ended meanwhile
  (void)waitpid(pid, &status, 0);
  return run;
}
