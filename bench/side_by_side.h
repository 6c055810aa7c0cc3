#ifndef BENCH_SIDE_BY_SIDE_H
#define BENCH_SIDE_BY_SIDE_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

/// One of the ways of doing the work that are compared.
template <typename Work>
struct Contender
{
  const char* name;
  Work work;
};

template <typename Work>
Contender(const char*, Work) -> Contender<Work>;

/// The times of one contender, in nanoseconds.
class Turns
{
public:
  /// Returns the nanoseconds of one turn of `work`.
  template <typename Work>
  double take(const Work& work)
  {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    nanoseconds_.push_back(elapsed.count());
    return elapsed.count();
  }

  /// Returns the time that the share `rank` of the turns stays below: 0.5 gives the median.
  double quantile(double rank)
  {
    const auto at = nanoseconds_.begin() + static_cast<std::ptrdiff_t>(rank * static_cast<double>(nanoseconds_.size()));
    std::nth_element(nanoseconds_.begin(), at, nanoseconds_.end());
    return *at;
  }

private:
  std::vector<double> nanoseconds_;
};

/// Let the contenders do the same work in turns, so that whatever slows the machine down slows all of them. `prepare`
/// runs before every turn and is not measured. The reported time is that of `own`. `calls` says how often a turn does
/// what is measured. For each contender there are the counters NAME:ns, NAME:q1 and NAME:q3, which are the median and
/// the quartiles of the time of one call in nanoseconds. Each of the others also has a counter NAME, which says how
/// many times as long as this contender `own` takes, by the medians: below 1, `own` is faster.
template <typename Prepare, typename Own, typename... Others>
void prepared_side_by_side(benchmark::State& state, double calls, const Prepare& prepare, const Own& own,
                           const Others&... others)
{
  Turns own_turns;
  Turns turns[sizeof...(Others)];
  for (auto _ : state) {
    prepare();
    state.SetIterationTime(own_turns.take(own.work) / 1e9);
    std::size_t n = 0;
    ((prepare(), (void)turns[n++].take(others.work)), ...);
  }

  const auto report = [&](const std::string& name, Turns& times) {
    state.counters[name + ":q1"] = times.quantile(0.25) / calls;
    state.counters[name + ":ns"] = times.quantile(0.5) / calls;
    state.counters[name + ":q3"] = times.quantile(0.75) / calls;
  };
  report(own.name, own_turns);
  std::size_t n = 0;
  ((report(others.name, turns[n]), state.counters[others.name] = own_turns.quantile(0.5) / turns[n].quantile(0.5), ++n),
   ...);
}

/// Do the same for work that needs no preparation.
template <typename Own, typename... Others>
void side_by_side(benchmark::State& state, double calls, const Own& own, const Others&... others)
{
  prepared_side_by_side(
      state, calls, [] {}, own, others...);
}

/// Returns work that does `work` a number of times, because a clock is too coarse for one.
template <typename Work>
auto repeated(int times, Work work)
{
  return [times, work] {
    for (int n = 0; n < times; ++n)
      work();
  };
}

#endif // BENCH_SIDE_BY_SIDE_H
