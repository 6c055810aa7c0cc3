#include "ctl/checked_process.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

static std::string path_of(pid_t pid, const char* name)
{
  return "/proc/" + std::to_string(pid) + '/' + name;
}

// Reads a file of texts that end in null characters. False if the caller may not.
static bool read_texts(const std::string& path, std::vector<std::string>& texts)
{
  std::ifstream in(path, std::ios::binary);
  for (std::string text; std::getline(in, text, '\0');)
    texts.push_back(text);
  return in.eof();
}

// The numbers in the line `name` of the status of the process.
static std::vector<unsigned> read_ids(pid_t pid, const std::string& name)
{
  std::ifstream in(path_of(pid, "status"));
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, name.size() + 1, name + ':') == 0) {
      std::istringstream numbers(line.substr(name.size() + 1));
      std::vector<unsigned> ids;
      for (unsigned id = 0; numbers >> id;)
        ids.push_back(id);
      return ids;
    }
  return {};
}

static bool read_account(pid_t pid, Checked_Process& process)
{
  const std::vector<unsigned> uids = read_ids(pid, "Uid"); // the real id, and then the effective one
  const std::vector<unsigned> gids = read_ids(pid, "Gid");
  if (uids.size() < 2 || gids.size() < 2)
    return false;
  process.uid = uids[1];
  process.gid = gids[1];
  process.groups = read_ids(pid, "Groups");
  return true;
}

static rlim_t limit_of(const std::string& word)
{
  return word == "unlimited" ? RLIM_INFINITY : std::strtoul(word.c_str(), nullptr, 10);
}

// Reads the limits from the file that everybody may read. prlimit(2) would take a right that root of a container has
// not. They cannot be raised without a right either, so they stay within those of the caller.
static void read_limits(pid_t pid, Checked_Process& process)
{
  rlimit own = {};
  (void)getrlimit(RLIMIT_NOFILE, &own); // fails for no limit that there is
  process.descriptors = own;
  std::ifstream in(path_of(pid, "limits"));
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, std::strlen("Max open files"), "Max open files") == 0) {
      std::istringstream words(line.substr(std::strlen("Max open files")));
      std::string soft;
      std::string hard;
      words >> soft >> hard;
      process.descriptors.rlim_max = std::min(limit_of(hard), own.rlim_max);
      process.descriptors.rlim_cur = std::min(limit_of(soft), process.descriptors.rlim_max);
    }
}

static bool is_root_directory(int fd)
{
  struct stat own = {};
  struct stat other = {};
  return stat("/", &own) == 0 && fstat(fd, &other) == 0 && own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

static std::string look_as_root(pid_t pid, Checked_Process& process)
{
  process.root.reset(open(path_of(pid, "root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  process.directory.reset(open(path_of(pid, "cwd").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (process.root.get() == -1 || process.directory.get() == -1 ||
      !read_texts(path_of(pid, "environ"), process.environment))
    return "the process " + std::to_string(pid) + " cannot be looked into: " + std::strerror(errno);

  // A container has files of its own. Nothing there is executed as root of this machine.
  if (process.uid == 0 && !is_root_directory(process.root.get()))
    return "the process " + std::to_string(pid) + " runs as root in a file system of its own";
  if (process.uid == 0)
    process.root.reset();
  return "";
}

static void look_as_account(pid_t pid, Checked_Process& process)
{
  process.directory.reset(open(path_of(pid, "cwd").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (read_texts(path_of(pid, "environ"), process.environment) && !process.environment.empty())
    return;
  process.environment.clear();
  for (char** variable = environ; *variable; ++variable)
    process.environment.emplace_back(*variable);
}

std::string look_at_process(pid_t pid, uid_t uid, Checked_Process& process)
{
  if (!read_texts(path_of(pid, "cmdline"), process.arguments) || process.arguments.empty() ||
      !read_account(pid, process))
    return "the command line of the process " + std::to_string(pid) + " cannot be read";
  process.arguments.erase(process.arguments.begin());
  read_limits(pid, process);
  if (process.uid != uid)
    return "the process " + std::to_string(pid) + " is not the one that listens at the socket";

  if (geteuid() == 0)
    return look_as_root(pid, process);
  look_as_account(pid, process);
  return "";
}

static int take_account_of(const Checked_Process& process)
{
  if (process.root.get() != -1 && (fchdir(process.root.get()) != 0 || chroot(".") != 0))
    return -1;
  if (fchdir(process.directory.get()) != 0 || setgroups(process.groups.size(), process.groups.data()) != 0 ||
      setresgid(process.gid, process.gid, process.gid) != 0)
    return -1;
  return setresuid(process.uid, process.uid, process.uid);
}

int take_place_of(const Checked_Process& process)
{
  const bool is_root = geteuid() == 0;
  if (setrlimit(RLIMIT_NOFILE, &process.descriptors) != 0)
    return -1;
  if (is_root && take_account_of(process) != 0)
    return -1;
  if (!is_root && process.directory.get() != -1 && fchdir(process.directory.get()) != 0)
    return -1;
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

std::string variable_of(const Checked_Process& process, const std::string& name)
{
  for (const std::string& variable : process.environment)
    if (variable.compare(0, name.size() + 1, name + '=') == 0)
      return variable.substr(name.size() + 1);
  return "";
}
