#ifndef METRICS_REGISTRY_H
#define METRICS_REGISTRY_H

#include <starter/metrics.h>

#include <prometheus/metric_family.h>

#include <vector>

namespace starter
{

/// The present values of all metrics of the process. For the companion that serves them; the header is not installed.
/// Takes the locks of the registry for moments, and may throw std::bad_alloc. Any thread that blocks signals.
STARTER_METRICS_API std::vector<prometheus::MetricFamily> collect_metrics();

} // namespace starter

#endif // METRICS_REGISTRY_H
