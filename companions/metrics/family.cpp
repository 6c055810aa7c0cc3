#include "companions/metrics/family.h"

#include <utility>

prometheus::MetricFamily& add_family(std::vector<prometheus::MetricFamily>& families, const char* name,
                                     const char* help, prometheus::MetricType type)
{
  prometheus::MetricFamily& family = families.emplace_back();
  family.name = name;
  family.help = help;
  family.type = type;
  return family;
}

void add_value(prometheus::MetricFamily& family, double value, std::vector<prometheus::ClientMetric::Label> labels)
{
  prometheus::ClientMetric& metric = family.metric.emplace_back();
  metric.label = std::move(labels);
  if (family.type == prometheus::MetricType::Counter)
    metric.counter.value = value;
  else
    metric.gauge.value = value;
}
