#include "tests/cluster/instances.h"

#include "tests/support/temp_dir.h"

#include <sstream>
#include <utility>

Instances::Instances(std::vector<std::string> paths) : paths_(std::move(paths)), thread_(&Instances::watch, this) {}

Instances::~Instances()
{
  ended_ = true;
  thread_.join();
}

void Instances::set_path(unsigned machine, const std::string& path)
{
  const std::lock_guard<std::mutex> guard(mutex_);
  paths_[machine] = path;
}

std::string Instances::path(unsigned machine) const
{
  const std::lock_guard<std::mutex> guard(mutex_);
  return paths_[machine];
}

std::vector<pid_t> Instances::processes(unsigned machine) const
{
  std::vector<pid_t> pids;
  std::istringstream in(read_file(path(machine)));
  for (pid_t pid; in >> pid;)
    pids.push_back(pid);
  return pids;
}

int Instances::active() const
{
  for (unsigned i = 0; i < paths_.size(); ++i)
    if (!processes(i).empty())
      return static_cast<int>(i);
  return -1;
}

// The machines are looked at one after another. Whoever was there before and after a look at another machine was there
// at the moment of this look as well.
bool Instances::is_doubled() const
{
  const int first = active();
  if (first == -1)
    return false;
  for (unsigned i = static_cast<unsigned>(first) + 1; i < paths_.size(); ++i)
    if (!processes(i).empty() && !processes(static_cast<unsigned>(first)).empty())
      return true;
  return false;
}

void Instances::watch()
{
  auto last = std::chrono::steady_clock::now();
  while (!ended_) {
    const bool doubled = is_doubled();
    const auto now = std::chrono::steady_clock::now();
    if (doubled) {
      ++doubled_;
      doubled_nsec_ += std::chrono::nanoseconds(now - last).count();
    }
    ++looks_;
    last = now;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}
