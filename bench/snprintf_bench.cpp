// The texts are "NAME=VALUE", as they are made to set an environment variable. The argument is the length of the value.
// No contender knows it before.

#include "scrt/snprintf_t.h"
#include "scrt/string_sprintf.h"

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <string>

static const int CALLS = 100;

// Keeps the compiler from leaving a text out.
static void use(const void* text)
{
  benchmark::DoNotOptimize(text);
  benchmark::ClobberMemory();
}

static auto asprintf_of(const char* name, const char* value)
{
  return Contender{"asprintf", repeated(CALLS, [=] {
                     char* text = nullptr;
                     const int length = ::asprintf(&text, "%s=%s", name, value);
                     benchmark::DoNotOptimize(length);
                     use(text);
                     std::free(text);
                   })};
}

static auto concatenation_of(const char* name, const char* value)
{
  return Contender{"string", repeated(CALLS, [=] {
                     std::string text(name);
                     text += '=';
                     text += value;
                     use(text.data());
                   })};
}

// A text in a buffer on the stack, as long as it fits into 4096 characters.
static void snprintf_t_text(benchmark::State& state)
{
  const std::string content(static_cast<std::size_t>(state.range(0)), 'v');
  const char* const name = "LD_LIBRARY_PATH";
  const char* const value = content.c_str();

  const Contender own{"snprintf_t", repeated(CALLS, [=] {
                        const snprintf_t<4096, char> text("%s=%s", name, value);
                        use(text.c_str());
                      })};
  const Contender by_hand{"snprintf", repeated(CALLS, [=] {
                            char buf[4096];
                            char* text = buf;
                            const int length = std::snprintf(buf, sizeof buf, "%s=%s", name, value);
                            if (length >= static_cast<int>(sizeof buf)) {
                              const std::size_t size = static_cast<std::size_t>(length) + 1;
                              text = static_cast<char*>(std::malloc(size));
                              (void)std::snprintf(text, size, "%s=%s", name, value); // it is as long as before
                            }
                            use(text);
                            if (text != buf)
                              std::free(text);
                          })};
  const Contender by_fmt{"fmt", repeated(CALLS, [=] {
                           fmt::basic_memory_buffer<char, 4096> text;
                           fmt::format_to(std::back_inserter(text), "{}={}", name, value);
                           text.push_back('\0');
                           use(text.data());
                         })};
  side_by_side(state, CALLS, own, by_hand, asprintf_of(name, value), by_fmt, concatenation_of(name, value));
}
BENCHMARK(snprintf_t_text)
    ->ArgName("length")
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(4000)
    ->Arg(16384)
    ->Arg(65536)
    ->UseManualTime();

// Does by hand what string_sprintf does for an empty string.
__attribute__((format(printf, 2, 3))) static void format_in_two_passes(std::string& text, const char* fmt, ...)
{
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  text.resize(128);
  const int length = std::vsnprintf(&text[0], text.size(), fmt, args);
  const std::size_t size = static_cast<std::size_t>(length) + 1;
  if (size > text.size()) {
    text.resize(size);
    (void)std::vsnprintf(&text[0], size, fmt, again); // it is as long as before
  }
  text.resize(size - 1);
  va_end(again);
  va_end(args);
}

// A text in a new string.
static void string_sprintf_text(benchmark::State& state)
{
  const std::string content(static_cast<std::size_t>(state.range(0)), 'v');
  const char* const name = "LD_LIBRARY_PATH";
  const char* const value = content.c_str();

  const Contender own{"string_sprintf", repeated(CALLS, [=] {
                        std::string text;
                        string_sprintf(text, "%s=%s", name, value);
                        use(text.data());
                      })};
  const Contender by_hand{"vsnprintf", repeated(CALLS, [=] {
                            std::string text;
                            format_in_two_passes(text, "%s=%s", name, value);
                            use(text.data());
                          })};
  const Contender by_fmt{"fmt", repeated(CALLS, [=] {
                           const std::string text = fmt::format("{}={}", name, value);
                           use(text.data());
                         })};
  side_by_side(state, CALLS, own, by_hand, asprintf_of(name, value), by_fmt, concatenation_of(name, value));
}
BENCHMARK(string_sprintf_text)
    ->ArgName("length")
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(4000)
    ->Arg(16384)
    ->Arg(65536)
    ->UseManualTime();

// A text in a string that is used again, as a walk through a directory does it.
static void string_sprintf_again(benchmark::State& state)
{
  const std::string content(static_cast<std::size_t>(state.range(0)), 'v');
  const char* const name = "LD_LIBRARY_PATH";
  const char* const value = content.c_str();

  std::string text;
  const Contender own{"string_sprintf", repeated(CALLS, [=, &text] {
                        string_sprintf(text, "%s=%s", name, value);
                        use(text.data());
                      })};
  std::string other;
  const Contender by_hand{"vsnprintf", repeated(CALLS, [=, &other] {
                            format_in_two_passes(other, "%s=%s", name, value);
                            use(other.data());
                          })};
  side_by_side(state, CALLS, own, by_hand);
}
BENCHMARK(string_sprintf_again)->ArgName("length")->Arg(10)->Arg(100)->Arg(1000)->UseManualTime();
