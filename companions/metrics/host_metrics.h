#ifndef COMPANIONS_METRICS_HOST_METRICS_H
#define COMPANIONS_METRICS_HOST_METRICS_H

#include <prometheus/metric_family.h>

#include <vector>

/// Find out what does not change: the component and the version. Makes the reactor if there is none. Main thread,
/// before the first add_host_metrics().
void prepare_host_metrics();

/// Find out what only a thread in the event loop can: the number of threads in it, and, after expect_guard(), whether
/// the companion guard is there. In a callback of the reactor, one at a time.
void look_from_loop();

/// Have the next look_from_loop() look for the guard: services were loaded. Any thread, in signal handlers too.
void expect_guard();

/// Add the metrics about the program: starter_info, its services and the stalls that the guard has found. While
/// services are loaded or finalised, the services are those of the time before. Waits for nobody. The thread of the
/// server.
void add_host_metrics(std::vector<prometheus::MetricFamily>& families);

#endif // COMPANIONS_METRICS_HOST_METRICS_H
