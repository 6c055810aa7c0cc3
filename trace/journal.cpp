#include "trace/journal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// The messages alone: the entries of the companion for the journal have many lines, which a prefix would obscure.
static std::vector<std::string> make_command(const std::string& unit, const std::string& since)
{
  std::vector<std::string> command = {"journalctl", "--quiet", "--no-pager", "--all", "--output=cat"};
  command.push_back(unit.empty() ? "_COMM=starter" : "--unit=" + unit);
  if (!since.empty())
    command.push_back("--since=" + since);
  return command;
}

// Returns the number of the error, or 0.
static int spawn(std::vector<std::string> command, int output, pid_t& pid)
{
  std::vector<char*> argv(command.size() + 1, nullptr);
  for (std::size_t i = 0; i < command.size(); ++i)
    argv[i] = command[i].data();

  posix_spawn_file_actions_t actions;
  if (const int error = ::posix_spawn_file_actions_init(&actions))
    return error;
  int error = ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  if (error == 0)
    error = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  (void)::posix_spawn_file_actions_destroy(&actions); // cannot fail with this argument
  return error;
}

static bool fail(const std::string& what, int reason, std::string& error)
{
  error = what + ": " + std::strerror(reason);
  return false;
}

bool read_journal(const std::string& unit, const std::string& since, bool keeps_lines, Log& log, std::string& error)
{
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0)
    return fail("cannot make a pipe", errno, error);
  pid_t pid = -1;
  const int reason = spawn(make_command(unit, since), ends[1], pid);
  (void)::close(ends[1]); // nothing was written
  std::FILE* const output = reason == 0 ? ::fdopen(ends[0], "r") : nullptr;
  if (!output) {
    const int problem = reason != 0 ? reason : errno;
    (void)::close(ends[0]); // a journalctl that was started ends with that
    return fail("cannot start journalctl", problem, error);
  }

  const bool is_read = read_log(output, keeps_lines, log);
  const int problem = errno;
  (void)std::fclose(output); // nothing was written
  int status = 0;
  while (::waitpid(pid, &status, 0) == -1 && errno == EINTR)
    ;
  if (!is_read)
    return fail("cannot read the output of journalctl", problem, error);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    error = "journalctl failed";
  return error.empty();
}
