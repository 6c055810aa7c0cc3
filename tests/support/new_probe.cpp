#include "tests/support/new_probe.h"

#include <cstdlib>
#include <new>
#include <stdexcept>

// The operators allocate nothing of their own, so the records stand in an array.
static const std::size_t MAX_ALLOCATIONS = 1024;
static Allocation recorded[MAX_ALLOCATIONS];
static std::size_t recorded_count = 0;
static bool recording = false;
static std::size_t fail_size = 0;
static unsigned fail_countdown = 0;

static bool is_to_fail(std::size_t size)
{
  return recording && size == fail_size && fail_countdown > 0 && --fail_countdown == 0;
}

void* operator new(std::size_t size)
{
  if (void* const p = std::malloc(size ? size : 1))
    return p;
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
  void* const p = is_to_fail(size) ? nullptr : std::malloc(size ? size : 1);
  if (recording && recorded_count < MAX_ALLOCATIONS)
    recorded[recorded_count++] = {size, p, false};
  return p;
}

void operator delete(void* p) noexcept
{
  for (std::size_t n = 0; recording && p && n < recorded_count; ++n)
    if (recorded[n].p == p)
      recorded[n].deleted = true;
  std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
  operator delete(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept
{
  operator delete(p);
}

New_Recorder::New_Recorder() : New_Recorder(0, 0) {}

New_Recorder::New_Recorder(std::size_t size, unsigned nth)
{
  recorded_count = 0;
  fail_size = size;
  fail_countdown = nth;
  recording = true;
}

New_Recorder::~New_Recorder()
{
  recording = false;
}

bool New_Recorder::has_failed() const
{
  return fail_size != 0 && fail_countdown == 0;
}

unsigned New_Recorder::count(std::size_t size) const
{
  unsigned found = 0;
  for (std::size_t n = 0; n < recorded_count; ++n)
    if (recorded[n].size == size)
      ++found;
  return found;
}

const Allocation& New_Recorder::first(std::size_t size) const
{
  for (std::size_t n = 0; n < recorded_count; ++n)
    if (recorded[n].size == size)
      return recorded[n];
  throw std::logic_error("no allocation of that size");
}

const Allocation& New_Recorder::at(const void* p) const
{
  for (std::size_t n = recorded_count; n > 0; --n)
    if (recorded[n - 1].p == p)
      return recorded[n - 1];
  throw std::logic_error("no allocation at that address");
}
