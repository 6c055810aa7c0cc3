#ifndef TRACE_RESOLVER_H
#define TRACE_RESOLVER_H

#include "trace/log.h"
#include "trace/symboliser.h"

#include <vector>

/// Lead the frames of a back trace back to the sources. A module that the log names is taken by its build-id. Any other
/// one is taken from the path in the frame, if the addresses of the functions that the frames name agree with it.
/// One resolution for each frame. One thread at a time for a symboliser.
std::vector<Resolution> resolve_trace(const Trace& trace, Symboliser& symboliser);

/// The module of a frame: the one that the log names, or as much of it as the frame tells.
Module module_of(const Frame& frame);

#endif // TRACE_RESOLVER_H
