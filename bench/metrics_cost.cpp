// The cost of a metric to the service that has it, and of a scrape to the process.

#include "metrics/registry.h"

#include <starter/metrics.h>

#include <benchmark/benchmark.h>
#include <prometheus/text_serializer.h>

#include <atomic>
#include <sstream>
#include <string>

static void increment_counter(benchmark::State& state)
{
  starter::Counter* const counter = starter::counter("bench_increments_total", "Increments.");
  for (auto _ : state)
    counter->increment();
}
BENCHMARK(increment_counter)->Threads(1)->Threads(2)->UseRealTime();

// The least that a number which several threads count can cost.
static void increment_atomic(benchmark::State& state)
{
  static std::atomic<unsigned long> counter;
  for (auto _ : state)
    ++counter;
}
BENCHMARK(increment_atomic)->Threads(1)->Threads(2)->UseRealTime();

static void set_gauge(benchmark::State& state)
{
  starter::Gauge* const gauge = starter::gauge("bench_level_bytes", "A level.");
  for (auto _ : state)
    gauge->set(42);
}
BENCHMARK(set_gauge);

static void observe_histogram(benchmark::State& state)
{
  starter::Histogram* const histogram =
      starter::histogram("bench_time_seconds", "Times.", {0.001, 0.01, 0.1, 1, 10, 100});
  for (auto _ : state)
    histogram->observe(0.5);
}
BENCHMARK(observe_histogram);

static void find_counter(benchmark::State& state)
{
  for (auto _ : state)
    benchmark::DoNotOptimize(starter::counter("bench_found_total", "Finds.", {{"path", "/some/path"}}));
}
BENCHMARK(find_counter);

// The content of an answer with so many series, besides the few of the benchmarks above.
static void scrape(benchmark::State& state)
{
  for (int i = 0; i < state.range(0); ++i)
    starter::counter("bench_series_total", "Series.",
                     {{"path", ("/some/path/" + std::to_string(i)).c_str()}, {"method", "GET"}})
        ->increment(i * 1.5);
  for (auto _ : state) {
    std::ostringstream text;
    prometheus::TextSerializer().Serialize(text, starter::collect_metrics());
    benchmark::DoNotOptimize(text.str());
  }
}
BENCHMARK(scrape)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
