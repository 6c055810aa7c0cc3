#ifndef CHECK_USAGE_H
#define CHECK_USAGE_H

/// The text of --help. It lists the options of the host too, because the host has no option that does: it passes over
/// an option that it does not know, and starts.
constexpr char USAGE[] =
    "Usage: starter-check [--allow-warnings] [--json] [--quiet] [--compare-files FILE] [ARGUMENT...]\n"
    "       starter-check --save-files FILE [ARGUMENT...]\n"
    "       starter-check --help | --version\n"
    "\n"
    "Report what starter would refuse, ignore or fail to load when it is started with the\n"
    "arguments. Options of the checker's own stand before them. No service is initialised.\n"
    "\n"
    "Options of the checker:\n"
    "  --allow-warnings       let findings that are only warnings pass: the exit status is 0\n"
    "  --json                 write the findings as a JSON object\n"
    "  --quiet, -q            say nothing when there is nothing to report\n"
    "  --compare-files FILE   report configuration files that are new or gone since FILE was saved\n"
    "  --save-files FILE      check nothing, and write the list of configuration files to FILE\n"
    "  --help                 write this text\n"
    "  --version              write the version\n"
    "\n"
    "Options of starter:\n"
    "  --reactor=TYPE         the reactor: select, tp, dev_poll or priority\n"
    "  --threads=NUMBER       the threads that run its event loop; tp takes 2 or more\n"
    "  --background           go to the background at once\n"
    "  --user=USER            become this user\n"
    "  --primary-group=GROUP  take this primary group\n"
    "  --group=GROUP          add this supplementary group; may be repeated\n"
    "  -f PATH                process a configuration file, or all .conf files of a directory; may be\n"
    "                         repeated\n"
    "  -S DIRECTIVE           process a directive; may be repeated\n"
    "  -b                     go to the background before the services are loaded\n"
    "  -d                     log in detail how the services are loaded\n"
    "  -k KEY                 the endpoint of the framework's logger\n"
    "  -n                     do not load static services\n"
    "  -p FILE                write the process id to a file\n"
    "  -s SIGNAL              let the framework handle this signal\n"
    "  -y                     load static services\n"
    "\n"
    "starter itself has no --help: it ignores options that it does not know, and starts.\n"
    "\n"
    "Exit status: 0 nothing found, 1 with findings, 2 for misuse, or when nothing can be said.\n";

#endif // CHECK_USAGE_H
