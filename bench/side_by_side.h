#ifndef BENCH_SIDE_BY_SIDE_H
#define BENCH_SIDE_BY_SIDE_H

#include <benchmark/benchmark.h>

#include <chrono>

/// One of the ways of doing the work that are compared.
template <typename Work>
struct Contender
{
  const char* name;
  Work work;
};

template <typename Work>
Contender(const char*, Work) -> Contender<Work>;

/// Returns the seconds that `work` takes.
template <typename Work>
double seconds_of(const Work& work)
{
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Let the contenders do the same work in turns, so that whatever slows the machine down slows all of them. The
/// reported time is that of `own`. Each of the others has a counter with its name, which says how many times as long as
/// this contender `own` took: below 1, `own` is faster.
template <typename Own, typename... Others>
void side_by_side(benchmark::State& state, const Own& own, const Others&... others)
{
  double own_seconds = 0;
  double seconds[sizeof...(Others)] = {};

  for (auto _ : state) {
    const double elapsed = seconds_of(own.work);
    state.SetIterationTime(elapsed);
    own_seconds += elapsed;
    std::size_t n = 0;
    ((seconds[n++] += seconds_of(others.work)), ...);
  }

  std::size_t n = 0;
  ((state.counters[others.name] = own_seconds / seconds[n++]), ...);
}

#endif // BENCH_SIDE_BY_SIDE_H
