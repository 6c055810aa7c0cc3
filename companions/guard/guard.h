#ifndef COMPANIONS_GUARD_GUARD_H
#define COMPANIONS_GUARD_GUARD_H

/// @file
/// The numbers that the guard tells others in the process. The service library libstarter_guard.so exports these
/// functions, and nobody links it. A service that wants them looks for the library without loading it, whenever it
/// wants a number or once, after the guard has been loaded:
///
///     void* const guard = ::dlopen("libstarter_guard.so", RTLD_NOLOAD | RTLD_LAZY);
///     const auto stalls = guard ? reinterpret_cast<decltype(&starter_guard_stalls)>(
///                                     ::dlsym(guard, "starter_guard_stalls")) : nullptr;
///
/// The handle is null if the process has no guard, or has not come to its directive yet. The function is null if the
/// guard is older than this header. The library stays in memory until the process ends, over reloads and after the
/// guard has been removed, so that neither the handle nor a function becomes invalid; a handle that is not closed
/// costs nothing. dlopen and dlsym take the lock of the dynamic loader: they are nothing for a signal handler.
///
/// Any thread may call the functions at any time, in signal handlers too: they take no lock, allocate nothing and
/// leave errno alone. They cannot fail.

/// The number of stalls since the start of the process: how often a thread has been found in one callback for longer
/// than the guard's limit, with a record or without one. A stall counts once, when it is found, which is when its
/// record is written: after the limit and up to half of it. The number never falls. A reload keeps it, and so does a
/// guard that is removed or loaded again.
extern "C" [[gnu::visibility("default")]] unsigned long starter_guard_stalls();

/// The number of threads that hang now: their stall counts in starter_guard_stalls(), and the guard has not seen them
/// return yet. It looks four times in the time of its limit, but not more often than every 5 ms, so that a thread may
/// be counted for a quarter of the limit after its return. The number is 0 while no guard is loaded, which is so
/// between the fini and the init of a reload too. Two calls for the two numbers come one after the other: a stall may
/// begin or end in between.
extern "C" [[gnu::visibility("default")]] unsigned starter_guard_stalled_threads();

#endif // COMPANIONS_GUARD_GUARD_H
