#ifndef COMPANIONS_LIFECYCLE_SUPERVISION_H
#define COMPANIONS_LIFECYCLE_SUPERVISION_H

#include "companions/lifecycle/reporter.h"

/// @file
/// The supervision of the process: there is one, which outlives the objects of the service, as a reload makes a new
/// one. It has signal handlers in front of the program's, because only these come before and after a reload or the end
/// of the loop.
///
/// Whatever happens, the message that the process reloads is followed by one that it is ready, or that it stops:
///
/// - It is sent when a hang-up arrives while the loop runs, in whatever thread, or else, at the latest, when the reload
///   comes to this service. Once, until the next message.
/// - The program reloads in the main thread, inside of the handler of a hang-up. In a single loop this is a second one,
///   which the program sends to itself; until then the loop is left. So when a handler of a hang-up ends in the main
///   thread and the loop runs, no reload is due any more, whether there was one or it was refused.
/// - After a termination the loop has ended, and stays so.

/// Begin the supervision, or go on with it, if the reload that is under way has ended it for a moment. Notifications go
/// to `address`, see Notify_Socket::open(). Returns 0, or -1 with errno: EALREADY if it has begun. Main thread.
int begin_supervision(const char* address, const Time_Limits& limits);

/// End the supervision. At a reload, it goes on to the end of that, and further if somebody begins it again until then.
/// If the loop has ended, the process stops. Main thread.
void end_supervision();

#endif // COMPANIONS_LIFECYCLE_SUPERVISION_H
