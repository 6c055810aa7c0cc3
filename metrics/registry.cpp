#include "metrics/registry.h"

#include <prometheus/check_names.h>
#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>

namespace
{
/// Prometheus' registry, and for each of its metrics the object that services have.
struct Registry
{
  std::mutex mutex;
  prometheus::Registry metrics;
  std::map<void*, std::unique_ptr<starter::Counter>> counters;
  std::map<void*, std::unique_ptr<starter::Gauge>> gauges;
  std::map<void*, std::unique_ptr<starter::Histogram>> histograms;
};

/// Holds the lock of the registry. A handler of a hang-up asks for metrics too, in `init`: it must not interrupt the
/// thread that has the lock.
class Registry_Lock
{
public:
  explicit Registry_Lock(std::mutex& mutex) : mutex_(mutex)
  {
    sigset_t all_but_faults;
    sigfillset(&all_but_faults);
    for (const int fault : {SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGABRT})
      sigdelset(&all_but_faults, fault);
    (void)pthread_sigmask(SIG_BLOCK, &all_but_faults, &before_); // cannot fail with these arguments
    mutex_.lock();
  }

  ~Registry_Lock()
  {
    mutex_.unlock();
    (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

  Registry_Lock(const Registry_Lock&) = delete;
  Registry_Lock& operator=(const Registry_Lock&) = delete;

private:
  std::mutex& mutex_;
  sigset_t before_;
};
} // namespace

// Nothing destroys it: services count until the very end of the process.
static Registry& get_registry()
{
  static Registry* const registry = new Registry;
  return *registry;
}

static bool are_bounds_valid(const double* bounds, std::size_t count)
{
  const double* const end = bounds + count;
  return count != 0 && std::adjacent_find(bounds, end, std::greater_equal<>()) == end;
}

// False if there is a label that is not allowed, or is given twice.
static bool read_labels(const starter::Label* labels, std::size_t count, prometheus::Labels& result)
{
  return std::all_of(labels, labels + count, [&result](const starter::Label& label) {
    return label.name && label.value && prometheus::CheckLabelName(label.name) &&
           result.emplace(label.name, label.value).second;
  });
}

// Prometheus' metric with this name and these labels; `args` are those of its constructor. Throws what Prometheus does:
// std::invalid_argument means that the name is taken, as it is allowed.
template <typename Metric, typename... Args>
static Metric& find_in(prometheus::Registry& registry, prometheus::detail::Builder<Metric> builder, const char* name,
                       const char* help, const prometheus::Labels& labels, const Args&... args)
{
  return builder.Name(name).Help(help).Register(registry).Add(labels, args...);
}

// The object that services have for what `find` returns. Returns null with errno.
template <typename Object, typename Find>
static Object* find_object(std::map<void*, std::unique_ptr<Object>> Registry::*objects, const char* name,
                           const char* help, const starter::Label* labels, std::size_t count, const Find& find)
{
  try {
    prometheus::Labels checked;
    if (!name || !help || !prometheus::CheckMetricName(name) || !read_labels(labels, count, checked)) {
      errno = EINVAL;
      return nullptr;
    }

    Registry& registry = get_registry();
    const Registry_Lock lock(registry.mutex);
    void* const metric = &find(registry.metrics, checked);
    std::unique_ptr<Object>& object = (registry.*objects)[metric];
    if (!object)
      object = std::make_unique<Object>(metric);
    return object.get();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const std::invalid_argument&) {
    errno = EEXIST;
  }
  return nullptr;
}

namespace starter
{

Counter* find_counter(const char* name, const char* help, const Label* labels, std::size_t count)
{
  return find_object(
      &Registry::counters, name, help, labels,
      count, [=](prometheus::Registry & registry, const prometheus::Labels& checked) -> auto& {
        return find_in(registry, prometheus::BuildCounter(), name, help, checked);
      });
}

Gauge* find_gauge(const char* name, const char* help, const Label* labels, std::size_t count)
{
  return find_object(
      &Registry::gauges, name, help, labels,
      count, [=](prometheus::Registry & registry, const prometheus::Labels& checked) -> auto& {
        return find_in(registry, prometheus::BuildGauge(), name, help, checked);
      });
}

Histogram* find_histogram(const char* name, const char* help, const double* bounds, std::size_t bound_count,
                          const Label* labels, std::size_t count)
{
  if (!are_bounds_valid(bounds, bound_count)) {
    errno = EINVAL;
    return nullptr;
  }
  return find_object(
      &Registry::histograms, name, help, labels,
      count, [=](prometheus::Registry & registry, const prometheus::Labels& checked) -> auto& {
        const prometheus::Histogram::BucketBoundaries buckets(bounds, bounds + bound_count);
        return find_in(registry, prometheus::BuildHistogram(), name, help, checked, buckets);
      });
}

std::vector<prometheus::MetricFamily> collect_metrics()
{
  return get_registry().metrics.Collect();
}

void Counter::increment(double amount) noexcept
{
  static_cast<prometheus::Counter*>(metric_)->Increment(amount);
}

double Counter::value() const noexcept
{
  return static_cast<const prometheus::Counter*>(metric_)->Value();
}

void Gauge::set(double value) noexcept
{
  static_cast<prometheus::Gauge*>(metric_)->Set(value);
}

void Gauge::add(double amount) noexcept
{
  static_cast<prometheus::Gauge*>(metric_)->Increment(amount);
}

double Gauge::value() const noexcept
{
  return static_cast<const prometheus::Gauge*>(metric_)->Value();
}

void Histogram::observe(double value) noexcept
{
  static_cast<prometheus::Histogram*>(metric_)->Observe(value);
}

} // namespace starter
