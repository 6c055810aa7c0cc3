#include "starter/interrupted.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <set>
#include <vector>

#include <dlfcn.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NEEDS_OWN_NEW() GTEST_SKIP() << "A sanitizer has new and delete of its own"
#else
#define NEEDS_OWN_NEW()
#endif

// Calls operator new by name: a compiler may leave out a pair of new and delete expressions, but not this call.
static void* allocate(std::size_t size)
{
  return ::operator new(size);
}

static void release(void* p)
{
  ::operator delete(p);
}

static void* allocate_in_handler(std::size_t size)
{
  const Handler_Memory_Guard guard;
  return allocate(size);
}

// Whether the memory belongs to the image of the program. The reserve does, the heap does not.
static bool is_of_reserve(const void* p)
{
  Dl_info info;
  return dladdr(p, &info) != 0;
}

TEST(handler_memory, comes_from_the_reserve_only_while_a_guard_is_alive)
{
  NEEDS_OWN_NEW();
  void* const in_handler = allocate_in_handler(100);
  void* const outside = allocate(100);

  EXPECT_TRUE(is_of_reserve(in_handler));
  EXPECT_FALSE(is_of_reserve(outside));

  release(outside);
  release(in_handler); // memory of the reserve can be released after the end of the guard
}

TEST(handler_memory, is_there_for_handlers_that_interrupt_handlers)
{
  NEEDS_OWN_NEW();
  const Handler_Memory_Guard outer;
  void* const first = allocate(8192);
  void* const inner = allocate_in_handler(8192);
  void* const second = allocate(8192); // the outer guard is still in force

  const std::set<void*> pieces{first, inner, second};
  EXPECT_EQ(3u, pieces.size());
  for (void* const piece : {first, inner, second}) {
    EXPECT_TRUE(is_of_reserve(piece));
    std::memset(piece, 'x', 8192); // the pieces do not overlap with the bookkeeping of each other
    release(piece);
  }
}

TEST(handler_memory, comes_from_the_heap_when_a_piece_is_too_small)
{
  NEEDS_OWN_NEW();
  void* const p = allocate_in_handler(8193);

  EXPECT_FALSE(is_of_reserve(p));
  release(p);
}

TEST(handler_memory, comes_from_the_heap_when_the_reserve_is_used_up_and_from_the_reserve_again)
{
  NEEDS_OWN_NEW();
  void* pieces[64];
  for (void*& piece : pieces) {
    piece = allocate_in_handler(1);
    EXPECT_TRUE(is_of_reserve(piece));
  }

  void* const one_more = allocate_in_handler(1);
  EXPECT_FALSE(is_of_reserve(one_more));
  release(one_more);

  release(pieces[7]);
  void* const again = allocate_in_handler(1);
  EXPECT_EQ(pieces[7], again);

  for (void* const piece : pieces)
    release(piece);
}

TEST(handler_memory, is_aligned_for_everything)
{
  std::vector<void*> pieces;
  for (int i = 0; i < 3; ++i)
    pieces.push_back(allocate_in_handler(1));

  for (void* const piece : pieces) {
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(piece) % alignof(std::max_align_t));
    release(piece);
  }
}

// ---- What the standard promises of new and delete

TEST(operator_new, gives_each_object_of_size_zero_an_address_of_its_own)
{
  void* const first = allocate(0);
  void* const second = allocate(0);

  EXPECT_NE(nullptr, first);
  EXPECT_NE(first, second);
  release(first);
  release(second);
}

TEST(operator_new, throws_when_memory_runs_out_and_no_new_handler_is_set)
{
  NEEDS_OWN_NEW();
  volatile std::size_t too_much = std::numeric_limits<std::size_t>::max() / 2; // volatile, or the compiler warns

  EXPECT_THROW((void)allocate(too_much), std::bad_alloc);
  EXPECT_EQ(nullptr, ::operator new(too_much, std::nothrow));
}

static int times_asked;

TEST(operator_new, asks_the_new_handler_until_the_handler_gives_up)
{
  NEEDS_OWN_NEW();
  volatile std::size_t too_much = std::numeric_limits<std::size_t>::max() / 2;
  times_asked = 0;
  const std::new_handler previous = std::set_new_handler([] {
    if (++times_asked == 2)
      std::set_new_handler(nullptr);
  });

  EXPECT_THROW((void)allocate(too_much), std::bad_alloc);
  EXPECT_EQ(2, times_asked);

  std::set_new_handler(previous);
}

TEST(operator_delete, accepts_null)
{
  release(nullptr);
  ::operator delete(nullptr, std::size_t(1));
}
