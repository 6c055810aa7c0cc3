#ifndef TRACE_USAGE_H
#define TRACE_USAGE_H

/// The text of --help.
constexpr char USAGE[] =
    "Usage: starter-trace [--all | --json] [--debug-dir DIR]... [FILE]\n"
    "       starter-trace --journal [-u UNIT] [--since TIME] [--all | --json] [--debug-dir DIR]...\n"
    "       starter-trace --help | --version\n"
    "\n"
    "Print the back traces in a log of starter with the function, the file and the line of each\n"
    "frame. The log is FILE, or standard input without one or with \"-\", or the journal.\n"
    "\n"
    "Options:\n"
    "  --all             write all lines of the log, not the back traces alone\n"
    "  --debug-dir DIR   look for debug information in DIR too; may be repeated\n"
    "  --journal         read the journal, of all components without -u\n"
    "  --json            write the back traces as a JSON object\n"
    "  --since TIME      read the journal from this time on, as journalctl takes it\n"
    "  --unit UNIT, -u   read the journal of this unit\n"
    "  --help            write this text\n"
    "  --version         write the version\n"
    "\n"
    "Debug information that is not in a library itself is looked for beside it, by its build-id in\n"
    "/usr/lib/debug/.build-id, and at the servers that DEBUGINFOD_URLS names.\n"
    "\n"
    "Exit status: 0 every frame resolved, or no back trace, 1 some frame not resolved, 2 for misuse,\n"
    "or when the log cannot be read.\n";

#endif // TRACE_USAGE_H
