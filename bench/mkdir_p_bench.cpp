#include "scrt/mkdir_p.h"

#include "bench/side_by_side.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

// A few lines that make a directory and its missing parents, and take everything that exists for a directory.
static int make_by_hand(std::string path, mode_t mode)
{
  for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
    path[at] = '\0';
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST)
      return -1;
    path[at] = '/';
  }
  return mkdir(path.c_str(), mode) == 0 || errno == EEXIST ? 0 : -1;
}

// Returns a directory for the measurement, in memory if there is such a file system: a disk would take most of the
// time.
static fs::path scratch_path()
{
  const char* const memory = "/dev/shm";
  const fs::path parent = access(memory, W_OK) == 0 ? fs::path(memory) : fs::temp_directory_path();
  return parent / ("mkdir_p_bench." + std::to_string(getpid()));
}

// The arguments are the number of levels to make, and the number of levels that exist.
static void mkdir_p_levels(benchmark::State& state)
{
  const fs::path root = scratch_path();
  fs::path kept = root;
  for (std::int64_t n = 0; n < state.range(1); ++n)
    kept /= "level";
  fs::path path = kept;
  for (std::int64_t n = 0; n < state.range(0); ++n)
    path /= "level";
  const std::string text = path;

  const auto prepare = [&] {
    fs::create_directories(kept);
    if (path != kept)
      fs::remove_all(kept / "level");
  };
  const Contender own{"mkdir_p", [&] {
                        if (mkdir_p(text.c_str(), 0755, {}) != 0)
                          state.SkipWithError("mkdir_p fails");
                      }};
  const Contender by_hand{"mkdir", [&] {
                            if (make_by_hand(text, 0755) != 0)
                              state.SkipWithError("mkdir fails");
                          }};
  const Contender by_library{"create_directories", [&] { fs::create_directories(path); }};
  prepared_side_by_side(state, 1, prepare, own, by_hand, by_library);
  fs::remove_all(root);
}
BENCHMARK(mkdir_p_levels)
    ->ArgNames({"new", "existing"})
    ->Args({1, 1})
    ->Args({4, 1})
    ->Args({16, 1})
    ->Args({0, 8})
    ->UseManualTime();
