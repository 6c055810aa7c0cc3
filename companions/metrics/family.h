#ifndef COMPANIONS_METRICS_FAMILY_H
#define COMPANIONS_METRICS_FAMILY_H

#include <prometheus/metric_family.h>

#include <vector>

/// Add a metric without values yet. The result is valid until the next one is added.
prometheus::MetricFamily& add_family(std::vector<prometheus::MetricFamily>& families, const char* name,
                                     const char* help, prometheus::MetricType type);

/// Add a value of a counter or a gauge.
void add_value(prometheus::MetricFamily& family, double value,
               std::vector<prometheus::ClientMetric::Label> labels = {});

#endif // COMPANIONS_METRICS_FAMILY_H
