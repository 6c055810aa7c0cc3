#ifndef COMPANIONS_METRICS_PROCESS_METRICS_H
#define COMPANIONS_METRICS_PROCESS_METRICS_H

#include <prometheus/metric_family.h>

#include <vector>

/// Add the metrics of the process itself, under the names that they have in every program: processor time, memory,
/// descriptors and start; and starter_up_seconds. They come from /proc; those that cannot be read are left out. Any
/// thread.
void add_process_metrics(std::vector<prometheus::MetricFamily>& families);

#endif // COMPANIONS_METRICS_PROCESS_METRICS_H
