#ifndef STARTER_EVENT_LOOP_H
#define STARTER_EVENT_LOOP_H

#include <ace/Reactor.h>

/// The reactor of the kind `type`, for `n` loop threads; owned by the caller. Null when no kind is named, or when the
/// reactor cannot be made, which is logged. Sets `threads` to the number of loop threads: `n` with a reactor, 0 without
/// one of its own. Main thread.
ACE_Reactor* get_reactor(const char* type, unsigned n, unsigned& threads);

/// Run the loop of the process-wide reactor until it is done: with fewer than two `threads` in the calling thread, else
/// in a pool of that many threads, for which the calling one waits. Reconfigures the services for hang-ups. Main
/// thread.
void run_event_loop(unsigned threads);

#endif // STARTER_EVENT_LOOP_H
