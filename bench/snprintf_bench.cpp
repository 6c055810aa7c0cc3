#include "scrt/snprintf_t.h"
#include "scrt/string_sprintf.h"

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

template <typename Work>
static auto a_hundred_times(Work work)
{
  return [work] {
    for (int n = 0; n < 100; ++n)
      work();
  };
}

// Measures a hundred texts "NAME=VALUE", with a value as long as the argument says, as they are made to set an
// environment variable. Up to 4095 characters fit into the buffer.
static void snprintf_t_side_by_side(benchmark::State& state)
{
  const std::string name("LD_LIBRARY_PATH");
  const std::string value(static_cast<std::size_t>(state.range(0)), 'v');

  const Contender own{"snprintf_t", a_hundred_times([&] {
                        const snprintf_t<4096, char> text("%s=%s", name.c_str(), value.c_str());
                        benchmark::DoNotOptimize(text.c_str());
                        benchmark::ClobberMemory();
                      })};
  const Contender string{"string", a_hundred_times([&] {
                           std::string text(name);
                           text += '=';
                           text += value.c_str(); // the other contenders do not know the length before either
                           benchmark::DoNotOptimize(text.data());
                           benchmark::ClobberMemory();
                         })};
  const Contender asprintf{"asprintf", a_hundred_times([&] {
                             char* text = nullptr;
                             const int len = ::asprintf(&text, "%s=%s", name.c_str(), value.c_str());
                             benchmark::DoNotOptimize(len);
                             benchmark::ClobberMemory();
                             std::free(text);
                           })};
  side_by_side(state, own, string, asprintf);
}
BENCHMARK(snprintf_t_side_by_side)->Arg(10)->Arg(200)->Arg(4000)->Arg(8000)->UseManualTime();

// Measures a hundred paths in one string, as a walk through a directory makes them.
static void string_sprintf_side_by_side(benchmark::State& state)
{
  const std::string dir(static_cast<std::size_t>(state.range(0)), 'd');
  const std::string file("service.conf");

  std::string path;
  const Contender own{"string_sprintf", a_hundred_times([&] {
                        string_sprintf(path, "%s/%s", dir.c_str(), file.c_str());
                        benchmark::DoNotOptimize(path.data());
                        benchmark::ClobberMemory();
                      })};
  std::string other;
  const Contender string{"string", a_hundred_times([&] {
                           other = dir.c_str();
                           other += '/';
                           other += file.c_str();
                           benchmark::DoNotOptimize(other.data());
                           benchmark::ClobberMemory();
                         })};
  const Contender asprintf{"asprintf", a_hundred_times([&] {
                             char* text = nullptr;
                             const int len = ::asprintf(&text, "%s/%s", dir.c_str(), file.c_str());
                             benchmark::DoNotOptimize(len);
                             benchmark::ClobberMemory();
                             std::free(text);
                           })};
  side_by_side(state, own, string, asprintf);
}
BENCHMARK(string_sprintf_side_by_side)->Arg(20)->Arg(110)->Arg(1000)->UseManualTime();
