#include "tests/faults/injection.h"

#include <map>
#include <regex>
#include <stdexcept>

const std::vector<Configuration>& configurations()
{
  static const std::vector<Configuration> all = {{"default", {}, false},
                                                 {"tp", {"--reactor", "tp", "--threads", "4"}, true},
                                                 {"dev_poll", {"--reactor", "dev_poll"}, false}};
  return all;
}

std::string name_of(const Injection& injection)
{
  const std::string effect = injection.effect.empty() ? "" : ':' + injection.effect;
  return injection.call + effect + ":when=" + std::to_string(injection.when) + (injection.for_ever ? "+" : "");
}

std::string name_of(const Case& c)
{
  return c.configuration->name + ' ' + name_of(c.injection);
}

Case case_of(const std::string& name)
{
  static const std::regex form("([a-z_]+) ([a-z0-9_]+)(:((error|retval)=[A-Z0-9]+))?:when=([0-9]+)(\\+?)");
  std::smatch match;
  if (std::regex_match(name, match, form))
    for (const Configuration& configuration : configurations())
      if (match.str(1) == configuration.name)
        return {&configuration, {match.str(2), match.str(4), std::stoul(match.str(6)), match.length(7) != 0}};

  throw std::invalid_argument("no such case: " + name);
}

std::vector<std::string> effects_of(const std::string& call)
{
  using Effects = std::vector<std::string>;
  static const Effects never;
  static const Effects usual = {"error=ENOMEM", "error=EPERM"};
  static const Effects of_new_descriptors = {"error=EMFILE", "error=ENOMEM"};
  static const Effects of_new_processes = {"error=EAGAIN", "error=ENOMEM"};
  static const Effects of_waits = {"error=EBADF", "error=ENOMEM"}; // an EINTR for ever is no error

  static const std::map<std::string, Effects> others = {
      // The kernel has no way to refuse these, or nobody is left to be told.
      {"exit", never},
      {"exit_group", never},
      {"getegid", never},
      {"geteuid", never},
      {"getgid", never},
      {"getpid", never},
      {"getppid", never},
      {"gettid", never},
      {"getuid", never},
      {"restart_syscall", never},
      {"rt_sigreturn", never},
      // They fail for a number that is no signal's, a bad address or a bad size only. A process whose signal mask or
      // dispositions stayed as they were at any point could not keep any promise about signals.
      {"rt_sigaction", never},
      {"rt_sigprocmask", never},
      // A wake-up fails for a bad address only, and a wait that ends early is no failure: the C library waits again.
      // The
      // tracer cannot tell one from the other.
      {"futex", never},

      {"brk", {"retval=0"}}, // it tells the unchanged end of the heap rather than an error
      {"clone", of_new_processes},
      {"clone3", of_new_processes},
      {"epoll_create", of_new_descriptors},
      {"epoll_create1", of_new_descriptors},
      {"epoll_ctl", {"error=ENOMEM", "error=ENOSPC"}},
      {"epoll_pwait", of_waits},
      {"epoll_wait", of_waits},
      {"eventfd2", of_new_descriptors},
      {"mmap", {"error=ENOMEM", "error=EPERM"}},
      {"openat", {"error=EACCES", "error=EMFILE"}},
      {"pipe2", of_new_descriptors},
      {"poll", of_waits},
      {"pread64", {"error=EIO", "error=EISDIR"}},
      {"pselect6", of_waits},
      {"read", {"error=EIO", "error=EISDIR"}},
      {"select", of_waits},
      {"socket", of_new_descriptors},
      {"socketpair", of_new_descriptors},
      {"vfork", of_new_processes},
      {"wait4", {"error=ECHILD", "error=EINVAL"}},
      {"write", {"error=EIO", "error=ENOSPC"}},
  };

  const auto found = others.find(call);
  return found == others.end() ? usual : found->second;
}
