#include "check/reactor_findings.h"

#include "scrt/make_reactor.h"
#include "starter/options.h"

#include <ace/Event_Handler.h>
#include <ace/Reactor.h>

#include <cerrno>
#include <new>
#include <string>

#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
class Handler : public ACE_Event_Handler
{
public:
  explicit Handler(int fd) : fd_(fd) {}

  ACE_HANDLE get_handle() const override { return fd_; }

private:
  const int fd_;
};

// Whether a reactor opens and can serve a descriptor besides its own. The framework may raise the limit for it.
bool is_reactor_workable(make_reactor_t maker)
{
  ACE_Reactor* const reactor = maker ? maker() : new (std::nothrow) ACE_Reactor; // the process ends with it
  const int fd = reactor && reactor->initialized() ? eventfd(0, EFD_CLOEXEC) : -1;
  if (fd == -1)
    return false;

  Handler handler(fd);
  const bool is_registered = reactor->register_handler(&handler, ACE_Event_Handler::READ_MASK) == 0;
  (void)reactor->remove_handler(&handler, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
  return is_registered;
}

std::string describe_limit()
{
  struct rlimit limit;
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? std::to_string(limit.rlim_cur) : "unknown number";
}
} // namespace

bool check_reactor_limit(int argc, char** argv, Findings& findings)
{
  const Starter_Options options = parse_options(argc, argv);
  const make_reactor_t maker = get_reactor_factory(options.type, options.n); // null: the host runs its default reactor

  const pid_t pid = fork();
  if (pid == 0)
    _exit(is_reactor_workable(maker) ? 0 : 1); // its status tells; a pipe would take up descriptors
  if (pid < 0)
    return false;

  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
    continue;
  if (status != 0)
    findings.push_back({Finding_Kind::DESCRIPTOR_LIMIT,
                        {},
                        "the limit of " + describe_limit() + " descriptors is too low for " +
                            (maker ? std::string("the reactor '") + options.type + '\'' : "the default reactor") +
                            " and a single service"});
  return true;
}
