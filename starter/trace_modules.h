#ifndef STARTER_TRACE_MODULES_H
#define STARTER_TRACE_MODULES_H

/// Log a record for each module, a library or the program, that has a function on the stack of the calling thread: its
/// path, its build-id and its place in memory, which lead from the addresses of a back trace to lines of the sources.
///
/// Nothing here takes a lock of the dynamic loader or memory, apart from the records themselves, so the thread may have
/// been interrupted in the middle of loading a library. The first back trace of the process must have been taken
/// before. One thread at a time, in signal handlers.
void log_trace_modules();

#endif // STARTER_TRACE_MODULES_H
