#include "companions/guard/judge.h"

#include "companions/guard/symbols.h"

#include <algorithm>
#include <cstddef>

enum { MAX_WAITING_FUNCTIONS = 32 };

namespace
{
/// Where the functions of the framework lie that the guard has to know.
struct Framework
{
  Framework_Modules modules = find_framework_modules();
  Address_Range waiting[MAX_WAITING_FUNCTIONS];
  std::size_t waiting_count = find_waiting_functions(waiting, MAX_WAITING_FUNCTIONS);

  bool is_waiting_function(std::uintptr_t ip) const
  {
    return std::any_of(waiting, waiting + waiting_count, [ip](const Address_Range& range) { return range.holds(ip); });
  }
};

class Fingerprint
{
public:
  void add(std::uintptr_t word) { value_ = (value_ ^ word) * 0x9e3779b97f4a7c15 ^ value_ >> 29; }
  std::uint64_t value() const { return value_ != 0 ? value_ : 1; }

private:
  std::uint64_t value_ = 0xcbf29ce484222325;
};
} // namespace

static const Framework& get_framework()
{
  static const Framework framework;
  return framework;
}

void prepare_to_judge()
{
  (void)get_framework();
}

// While a callback runs, nothing changes in the frames of the framework that lead from the loop to it. The next
// callback has another descriptor, timer or count somewhere in their memory, or in the registers that they keep.
static std::uint64_t take_fingerprint(const Sample& sample, std::size_t first)
{
  Fingerprint print;
  for (std::size_t n = first; n <= sample.loop_frame; ++n)
    print.add(sample.frame(n).ip);
  for (const std::uintptr_t saved : sample.frame(first).saved)
    print.add(saved);

  const std::uintptr_t sp = std::max(sample.frame(first).sp, sample.stack_begin);
  for (std::size_t i = (sp - sample.stack_begin) / sizeof(std::uintptr_t); i < sample.stack_words; ++i)
    print.add(sample.stack[i]);
  return print.value();
}

Verdict judge(const Sample& sample)
{
  const Framework& framework = get_framework();
  Verdict verdict = {sample.is_waiting, 0};
  if (sample.is_waiting || !sample.has_frame(sample.loop_frame))
    return verdict;

  // From the loop inwards: the first function that is not of the framework's belongs to the callback. Where the
  // framework waits itself, this function is one of the C library.
  std::size_t first = sample.loop_frame;
  while (first > 0 && sample.has_frame(first - 1) && framework.modules.hold(sample.frame(first - 1).ip)) {
    --first;
    verdict.is_waiting = verdict.is_waiting || framework.is_waiting_function(sample.frame(first).ip);
  }
  if (!verdict.is_waiting)
    verdict.callback = take_fingerprint(sample, first);
  return verdict;
}
