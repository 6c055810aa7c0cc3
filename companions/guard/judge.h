#ifndef COMPANIONS_GUARD_JUDGE_H
#define COMPANIONS_GUARD_JUDGE_H

#include "companions/guard/sample.h"

#include <cstdint>

/// The thing that a thread did when it took a sample of itself.
struct Verdict
{
  bool is_waiting;        ///< for events, or for its turn to wait for them
  std::uint64_t callback; ///< the same for two samples of one callback, different for two callbacks; 0 if not known
};

/// Find out where the framework lies in memory, which takes the lock of the dynamic loader. Main thread, before the
/// first judgement.
void prepare_to_judge();

/// Takes no lock and no memory. The guard's thread.
Verdict judge(const Sample& sample);

#endif // COMPANIONS_GUARD_JUDGE_H
