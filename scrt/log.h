#ifndef SCRT_LOG_H
#define SCRT_LOG_H

/// @file
/// The macros that every log record goes through.

#include <ace/Log_Msg.h>

/// Every log record of ours goes through one of these two macros. They stamp it with the source file, the line, an
/// operation status and the current `errno`, then format and write it at `priority` (an `ACE_Log_Priority`). The
/// format and its arguments follow as they would in a printf call, with the framework's own directives besides.
/// Neither returns from the calling function, and neither changes `errno`. Any thread, signal handlers included.
///
/// They differ in the status only, on which the priority says nothing: choose both each time.

/// Status 0: whatever is told here is no failure of the operation at hand.
#define LOG_RECORD(priority, ...) ACE_DEBUG((priority, __VA_ARGS__))

/// Status -1: the operation at hand fails, or has just failed.
#define LOG_FAILED(priority, ...) ACE_ERROR((priority, __VA_ARGS__))

#endif // SCRT_LOG_H
