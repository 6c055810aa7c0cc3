#ifndef CTL_USAGE_H
#define CTL_USAGE_H

/// The text of --help.
constexpr char USAGE[] =
    "Usage: starterctl [-c COMPONENT | -s SOCKET] [--json] [--timeout SECONDS] COMMAND [ARGUMENT]\n"
    "       starterctl --help | --version\n"
    "\n"
    "Ask a component that runs, and control its services one at a time. The component has to load the\n"
    "companion control.\n"
    "\n"
    "Options:\n"
    "  -c COMPONENT         the component; it may be left out if only one runs\n"
    "  -s SOCKET            the path of a control socket, in place of a component\n"
    "  --json               write the answer as one line of JSON\n"
    "  --timeout SECONDS    wait no longer; default 10, 60 for trace, 300 for commands that change services\n"
    "  --force              of reload: do not ask starter-check before\n"
    "  --or-signal PID      of reload: send this process a hang-up if nobody listens at the socket\n"
    "  --help               write this text\n"
    "  --version            write the version\n"
    "\n"
    "Commands:\n"
    "  list                 the components that run with a control socket\n"
    "  status               the process, its threads and its services\n"
    "  services             the services\n"
    "  health               whether all is well, for monitoring: exit status 0, 1, 2, or 3 for unknown\n"
    "  reload               what a hang-up does, and how it went\n"
    "  suspend NAME         suspend a service\n"
    "  resume NAME          resume a suspended service\n"
    "  remove NAME          end a service and take it out of the process\n"
    "  restart NAME         end a service, and start it by its directive in the configuration\n"
    "  load DIRECTIVE       carry out one directive of a configuration file\n"
    "  log-level PRIORITY   log records of this priority and above: debug, info, notice, warning, error,\n"
    "                       critical, alert or emergency\n"
    "  debug on | off       switch the debug records of the framework\n"
    "  trace                the back traces of all threads\n"
    "\n"
    "Exit status: 0 done, 1 refused or failed, 2 for misuse, or when the process could not be asked.\n";

#endif // CTL_USAGE_H
