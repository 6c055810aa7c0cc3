#include "tests/support/hanger.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static int open_fifo(const std::string& path)
{
  EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
  EXPECT_EQ(0, chmod(path.c_str(), 0666)); // for processes of other accounts
  return ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

Hanger_Commands::Hanger_Commands() : hang_(open_fifo(dir_ / "hang")), release_(open_fifo(dir_ / "release")) {}

Hanger_Commands::~Hanger_Commands()
{
  ::close(hang_);
  ::close(release_);
}

std::vector<std::string> Hanger_Commands::make_args(std::vector<std::string> args, const std::string& params,
                                                    const std::string& more) const
{
  const std::string directives =
      companion_directive("guard", params.c_str()) +
      dynamic_directive("Hanger", "hanger", "_make_Hanger", (dir_ / "hang") + ' ' + (dir_ / "release")) + more;
  args.insert(args.end(), {"-f", dir_.write("x.conf", directives)});
  return args;
}

bool Hanger_Commands::hang(Starter_Process& starter, const Hang& hang)
{
  const unsigned before = starter.count("A callback hangs.");
  return ::write(hang_, &hang.letter, 1) == 1 && starter.wait_for_record("A callback hangs.", before + 1);
}

bool Hanger_Commands::release(Starter_Process& starter)
{
  const unsigned before = starter.count("A callback goes on.");
  return ::write(release_, "g", 1) == 1 && starter.wait_for_record("A callback goes on.", before + 1);
}

bool Hanger_Commands::tells(Starter_Process& starter, const std::string& record, unsigned count)
{
  return ::write(release_, "n", 1) == 1 && starter.wait_for_record(record, count);
}

Start_Options with_slow_allocator()
{
  Start_Options options;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  options.preload = {preload_library("slow_malloc")};
#endif
  return options;
}
