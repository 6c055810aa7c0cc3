#include "scrt/natoi.h"

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

// Returns numbers of `least` to `most` digits, all different, so that no branch predictor learns one text by heart.
static std::vector<std::string> texts_of(std::int64_t least, std::int64_t most)
{
  std::mt19937 random(20240229);
  std::uniform_int_distribution<int> any('0', '9');
  std::uniform_int_distribution<std::int64_t> length(least, most);
  std::vector<std::string> texts(1000);
  for (std::string& text : texts) {
    text = '1';
    for (std::int64_t n = length(random); n > 1; --n)
      text += static_cast<char>(any(random));
  }
  return texts;
}

// Returns the sum of the conversions of all texts, which keeps the compiler from leaving any out.
template <typename T, typename Convert>
static auto sum_of(const std::vector<std::string>& texts, Convert convert)
{
  return [&texts, convert] {
    T sum = 0;
    for (const std::string& text : texts)
      sum ^= static_cast<T>(convert(text));
    benchmark::DoNotOptimize(sum);
  };
}

// Measures conversions to `T`, the way callers make them: errno or a result tells the outcome, and is looked at. The
// arguments are the least and the largest number of digits.
template <typename T>
static void natoi_to(benchmark::State& state)
{
  const std::vector<std::string> texts = texts_of(state.range(0), state.range(1));

  const Contender own{"natoi", sum_of<T>(texts, [](const std::string& text) {
                        const T value = natoi<T, const char*>(text.c_str(), nullptr, nullptr);
                        return errno == 0 ? value : T(0);
                      })};
  const Contender strtol{"strtol", sum_of<T>(texts, [](const std::string& text) {
                           errno = 0;
                           const auto value = std::is_signed<T>::value
                                                  ? static_cast<T>(std::strtol(text.c_str(), nullptr, 10))
                                                  : static_cast<T>(std::strtoul(text.c_str(), nullptr, 10));
                           return errno == 0 ? value : T(0);
                         })};
  const Contender from_chars{"from_chars", sum_of<T>(texts, [](const std::string& text) {
                               T value = 0;
                               const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
                               return result.ec == std::errc() ? value : T(0);
                             })};
  side_by_side(state, 1000, own, strtol, from_chars);
}

BENCHMARK_TEMPLATE(natoi_to, unsigned long long)
    ->ArgNames({"digits", "to"})
    ->Args({1, 10})
    ->Args({11, 19})
    ->Args({1, 1})
    ->Args({2, 2})
    ->Args({3, 3})
    ->Args({4, 4})
    ->Args({6, 6})
    ->Args({8, 8})
    ->Args({10, 10})
    ->Args({13, 13})
    ->Args({16, 16})
    ->Args({19, 19})
    ->UseManualTime();
BENCHMARK_TEMPLATE(natoi_to, long long)->ArgNames({"digits", "to"})->Args({1, 10})->Args({11, 18})->UseManualTime();
BENCHMARK_TEMPLATE(natoi_to, unsigned)->ArgNames({"digits", "to"})->Args({1, 9})->UseManualTime();
BENCHMARK_TEMPLATE(natoi_to, int)
    ->ArgNames({"digits", "to"})
    ->Args({1, 9})
    ->Args({1, 1})
    ->Args({4, 4})
    ->Args({7, 7})
    ->Args({9, 9})
    ->UseManualTime();
BENCHMARK_TEMPLATE(natoi_to, short)->ArgNames({"digits", "to"})->Args({1, 4})->UseManualTime();
