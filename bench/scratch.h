#ifndef BENCH_SCRATCH_H
#define BENCH_SCRATCH_H

#include <filesystem>
#include <string>

#include <unistd.h>

/// A directory for the time of a measurement. The destructor removes it with its content.
class Scratch
{
public:
  Scratch() { std::filesystem::create_directories(path_); }
  ~Scratch()
  {
    std::error_code ignored; // what is left over harms nobody
    std::filesystem::remove_all(path_, ignored);
  }

  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::filesystem::path& path() const { return path_; }

private:
  const std::filesystem::path path_ = std::filesystem::temp_directory_path() / ("bench-" + std::to_string(getpid()));
};

#endif // BENCH_SCRATCH_H
