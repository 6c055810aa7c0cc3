#ifndef SCRT_LOG_H
#define SCRT_LOG_H

/// @file
/// Every log record goes through one of these macros.

#include <ace/Log_Msg.h>

/// Every log record of this project goes through one of these two macros. A macro stamps the record with the source
/// file, the line, an operation status and the current `errno`, then formats and writes it at `priority` (an
/// `ACE_Log_Priority`). The format and its arguments follow as in a printf call; the format may also contain the
/// framework's own directives. Neither macro returns from the calling function, and neither changes `errno`. Any
/// thread, signal handlers included.
///
/// The macros differ in the status only. The priority says nothing about the status: choose both each time.

/// The record has the status 0: it reports no failure of the operation at hand.
#define LOG_RECORD(priority, ...) ACE_DEBUG((priority, __VA_ARGS__))

/// The record has the status -1: the operation at hand fails, or has just failed.
#define LOG_FAILED(priority, ...) ACE_ERROR((priority, __VA_ARGS__))

#endif // SCRT_LOG_H
