#include "scrt/environ.h"

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

static const int CALLS = 2000; // of each thread

// Returns work that does `work` in so many threads at once. One thread is the main thread.
template <typename Work>
static auto in_threads(std::int64_t threads, Work work)
{
  return [threads, work = repeated(CALLS, work)] {
    std::vector<std::thread> others;
    for (std::int64_t n = 1; n < threads; ++n)
      others.emplace_back(work);
    work();
    for (std::thread& other : others)
      other.join();
  };
}

static std::string unlocked_copy(const char* name)
{
  const char* const value = std::getenv(name);
  return value ? value : std::string();
}

// Measures copies of a variable in the middle of an environment. The arguments are the number of threads, the number of
// other variables and the length of the value. The start of the threads is part of the time.
static void get_env_r_copy(benchmark::State& state)
{
  clearenv();
  for (std::int64_t n = 0; n < state.range(1); ++n) {
    if (n == state.range(1) / 2)
      setenv("WATCHDOG_USEC", std::string(static_cast<std::size_t>(state.range(2)), '3').c_str(), 1);
    setenv(("VARIABLE_" + std::to_string(n)).c_str(), "value", 1);
  }

  const std::int64_t threads = state.range(0);
  const Contender own{"get_env_r", in_threads(threads, [] {
                        const std::string value = get_env_r("WATCHDOG_USEC");
                        benchmark::DoNotOptimize(value.data());
                      })};
  const Contender unlocked{"unlocked", in_threads(threads, [] {
                             const std::string value = unlocked_copy("WATCHDOG_USEC");
                             benchmark::DoNotOptimize(value.data());
                           })};
  // The least that the lock itself costs.
  static pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
  const Contender by_rwlock{"rwlock", in_threads(threads, [] {
                              pthread_rwlock_rdlock(&lock);
                              const std::string value = unlocked_copy("WATCHDOG_USEC");
                              pthread_rwlock_unlock(&lock);
                              benchmark::DoNotOptimize(value.data());
                            })};
  static std::mutex mutex;
  const Contender by_mutex{"mutex", in_threads(threads, [] {
                             const std::lock_guard<std::mutex> guard(mutex);
                             const std::string value = unlocked_copy("WATCHDOG_USEC");
                             benchmark::DoNotOptimize(value.data());
                           })};
  side_by_side(state, CALLS, own, unlocked, by_rwlock, by_mutex);
}
BENCHMARK(get_env_r_copy)
    ->ArgNames({"threads", "variables", "length"})
    ->Args({1, 20, 8})
    ->Args({1, 20, 100})
    ->Args({1, 100, 8})
    ->Args({2, 20, 8})
    ->Args({4, 20, 8})
    ->UseManualTime();
