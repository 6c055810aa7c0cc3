#ifndef COMPANIONS_METRICS_OBSERVATION_H
#define COMPANIONS_METRICS_OBSERVATION_H

/// @file
/// The observation of the process: there is one, which outlives the objects of the service, as a reload makes a new
/// one. During a reload the server goes on to answer scrapes at the same address. It counts records, signals and
/// reloads, and the numbers live as long as the process.

/// Begin the observation, or go on with it if the reload that is under way has ended it for a moment, and serve the
/// metrics at `address`, see Listener::open(). Logs the address when the server is new, as a port may have been chosen.
/// Returns 0, or -1 with errno: EALREADY if it has begun, or that of Listener::open() or another failed call. Main
/// thread.
int begin_observation(const char* address);

/// End the observation. At a reload, it goes on to the end of that, and further if somebody begins it again until then.
/// Main thread.
void end_observation();

#endif // COMPANIONS_METRICS_OBSERVATION_H
