#ifndef TESTS_SUPPORT_STRESS_H
#define TESTS_SUPPORT_STRESS_H

#include <chrono>
#include <cstdlib>
#include <ostream>
#include <random>
#include <thread>

/// The work that a process under stress does meanwhile.
struct Load
{
  const char* name;
  unsigned bytes; ///< those that circulate in the busy service, 0 for a process that has nothing to do
};

inline const Load LOADS[] = {{"idle", 0}, {"busy", 4}};

inline std::ostream& operator<<(std::ostream& out, const Load& load)
{
  return out << load.name;
}

/// The number of runs of each case: that of the environment variable STARTER_STRESS_COUNT, or one that is small enough
/// for every test run.
inline int stress_count()
{
  const char* const text = std::getenv("STARTER_STRESS_COUNT");
  return text && *text ? std::atoi(text) : 20;
}

/// Let this time pass, without the imprecision of a sleep.
inline void pass_time(unsigned usec)
{
  const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(usec);
  while (std::chrono::steady_clock::now() < until)
    std::this_thread::yield();
}

/// A base of tests that send signals at moments which are random, and the same in each run.
class Stress
{
protected:
  const int count_ = stress_count();
  std::mt19937 random_{20261};

  unsigned up_to(unsigned usec) { return std::uniform_int_distribution<unsigned>(0, usec)(random_); }
};

#endif // TESTS_SUPPORT_STRESS_H
