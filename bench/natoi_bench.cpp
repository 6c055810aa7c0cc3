#include "scrt/natoi.h"

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

// Returns numbers of `digits` digits, all different, so that no branch predictor learns one text by heart.
static std::vector<std::string> texts_of(std::size_t digits)
{
  std::mt19937 random(20240229);
  std::uniform_int_distribution<int> any('0', '9');
  std::vector<std::string> texts(1000);
  for (std::string& text : texts) {
    text = '1';
    while (text.size() < digits)
      text += static_cast<char>(any(random));
  }
  return texts;
}

// Returns the sum of the conversions of all texts, which keeps the compiler from leaving any out.
template <typename Convert>
static auto sum_of(const std::vector<std::string>& texts, Convert convert)
{
  return [&texts, convert] {
    decltype(convert(texts[0])) sum = 0;
    for (const std::string& text : texts)
      sum += convert(text);
    benchmark::DoNotOptimize(sum);
  };
}

// Measures a thousand conversions to unsigned long long, the way callers make them: errno tells the outcome. The
// argument is the number of digits.
static void natoi_side_by_side(benchmark::State& state)
{
  const std::vector<std::string> texts = texts_of(static_cast<std::size_t>(state.range(0)));

  const Contender own{"natoi", sum_of(texts, [](const std::string& text) {
                        return natoi<unsigned long long, const char*>(text.c_str(), nullptr, nullptr);
                      })};
  const Contender strtol{"strtoul", sum_of(texts, [](const std::string& text) -> unsigned long long {
                           errno = 0;
                           return std::strtoul(text.c_str(), nullptr, 10);
                         })};
  const Contender from_chars{"from_chars", sum_of(texts, [](const std::string& text) {
                               unsigned long long value = 0;
                               std::from_chars(text.data(), text.data() + text.size(), value);
                               return value;
                             })};
  side_by_side(state, own, strtol, from_chars);
}
BENCHMARK(natoi_side_by_side)->Arg(1)->Arg(4)->Arg(8)->Arg(19)->UseManualTime();

// Measures the same for int, which is signed.
static void natoi_int_side_by_side(benchmark::State& state)
{
  const std::vector<std::string> texts = texts_of(static_cast<std::size_t>(state.range(0)));

  const Contender own{"natoi", sum_of(texts, [](const std::string& text) -> long {
                        return natoi<int, const char*>(text.c_str(), nullptr, nullptr);
                      })};
  const Contender strtol{"strtol", sum_of(texts, [](const std::string& text) {
                           errno = 0;
                           return std::strtol(text.c_str(), nullptr, 10);
                         })};
  const Contender from_chars{"from_chars", sum_of(texts, [](const std::string& text) -> long {
                               int value = 0;
                               std::from_chars(text.data(), text.data() + text.size(), value);
                               return value;
                             })};
  side_by_side(state, own, strtol, from_chars);
}
BENCHMARK(natoi_int_side_by_side)->Arg(1)->Arg(4)->Arg(9)->UseManualTime();
