#ifndef STARTER_METRICS_H
#define STARTER_METRICS_H

#include <cstddef>
#include <initializer_list>

/// @file
/// Metrics of a service, which the companion `metrics` of the program starter serves to Prometheus. Without the
/// companion they count all the same, and nobody reads them.
///
///     static starter::Counter* const requests =
///         starter::counter("echo_requests_total", "Requests that were answered.", {{"protocol", "tcp"}});
///     if (requests)
///       requests->increment();
///
/// There is one registry in the process, whichever library asks first, and whether the companion is loaded before or
/// after it. A metric is made when somebody asks for its name with its labels for the first time. Everybody else who
/// asks for them gets the same object, which lives as long as the process. Therefore a reload loses nothing.

#define STARTER_METRICS_API __attribute__((visibility("default")))

namespace starter
{

/// A label of a metric. The texts are copied.
struct Label
{
  const char* name;  ///< [a-zA-Z_][a-zA-Z0-9_]*, without two underscores at its beginning
  const char* value; ///< any UTF-8
};

/// A number that only grows. The methods take no lock and no memory: any thread, in signal handlers too.
class STARTER_METRICS_API Counter
{
public:
  /// Add `amount`; a negative one changes nothing.
  void increment(double amount = 1) noexcept;

  double value() const noexcept;

  explicit Counter(void* metric) noexcept : metric_(metric) {} // the library makes the objects

  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

private:
  void* const metric_;
};

/// A number that goes up and down. The methods take no lock and no memory: any thread, in signal handlers too.
class STARTER_METRICS_API Gauge
{
public:
  void set(double value) noexcept;

  /// Add `amount`, which may be negative.
  void add(double amount) noexcept;

  double value() const noexcept;

  explicit Gauge(void* metric) noexcept : metric_(metric) {} // the library makes the objects

  Gauge(const Gauge&) = delete;
  Gauge& operator=(const Gauge&) = delete;

private:
  void* const metric_;
};

/// How often values were observed, in buckets of values. Any thread, but not in signal handlers: it takes a lock for a
/// moment.
class STARTER_METRICS_API Histogram
{
public:
  void observe(double value) noexcept;

  explicit Histogram(void* metric) noexcept : metric_(metric) {} // the library makes the objects

  Histogram(const Histogram&) = delete;
  Histogram& operator=(const Histogram&) = delete;

private:
  void* const metric_;
};

/// @name To find or make a metric
/// `name` is that of the metric, [a-zA-Z_:][a-zA-Z0-9_:]*; by convention it begins with the name of the service and
/// ends with the unit, and that of a counter in "_total". `help` is a sentence that explains it; the first one counts.
/// All texts are copied. A metric that exists already keeps its buckets.
///
/// They return null with errno: EINVAL (a name that is not allowed, a label that is given twice, or bounds that are
/// missing or do not grow), EEXIST (the name is that of a metric of another type), ENOMEM. Log nothing. Any thread; not
/// in signal handlers, but in `init` and `fini`, which the program calls in one: they block signals while they hold the
/// lock of the registry. They are slow, so a service asks once.
/// @{
STARTER_METRICS_API Counter* find_counter(const char* name, const char* help, const Label* labels, std::size_t count);
STARTER_METRICS_API Gauge* find_gauge(const char* name, const char* help, const Label* labels, std::size_t count);
STARTER_METRICS_API Histogram* find_histogram(const char* name, const char* help, const double* bounds,
                                              std::size_t bound_count, const Label* labels, std::size_t count);

inline Counter* counter(const char* name, const char* help, std::initializer_list<Label> labels = {})
{
  return find_counter(name, help, labels.begin(), labels.size());
}

inline Gauge* gauge(const char* name, const char* help, std::initializer_list<Label> labels = {})
{
  return find_gauge(name, help, labels.begin(), labels.size());
}

/// `bounds` are the upper bounds of the buckets, of which each is more than the one before; a bucket for all greater
/// values is added.
inline Histogram* histogram(const char* name, const char* help, std::initializer_list<double> bounds,
                            std::initializer_list<Label> labels = {})
{
  return find_histogram(name, help, bounds.begin(), bounds.size(), labels.begin(), labels.size());
}
/// @}

} // namespace starter

#endif // STARTER_METRICS_H
