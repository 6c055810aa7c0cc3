#include "starter/interrupted.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <set>
#include <vector>

#include <dlfcn.h>
#include <malloc.h>

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

// Releasing memory that is neither the reserve's nor the heap's ends the process: the C library finds it out.
TEST(handler_memory, ends_behind_the_last_piece)
{
  NEEDS_OWN_NEW();
  char* pieces[64];
  for (char*& piece : pieces)
    piece = static_cast<char*>(allocate_in_handler(8192));
  const auto [first, last] = std::minmax_element(std::begin(pieces), std::end(pieces));
  char* const end = *last + 8192;

  EXPECT_EQ(64 * 8192, end - *first); // the pieces leave no gap, and the last one is in use
  std::memset(*last, 0, 8192);        // the C library looks at the bytes in front of what it releases
  EXPECT_EXIT(release(end), testing::KilledBySignal(SIGABRT), "");

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

// A pair of functions that allocate and release memory.
struct Form
{
  const char* name;
  void* (*allocate)(std::size_t size);
  void (*release)(void* p, std::size_t size);
};

static const std::align_val_t WIDE{64}; // more than the plain forms promise

static const Form FORMS[] = {
    {"plain", [](std::size_t n) { return ::operator new(n); }, [](void* p, std::size_t) { ::operator delete(p); }},
    {"plain, sized", [](std::size_t n) { return ::operator new(n); },
     [](void* p, std::size_t n) { ::operator delete(p, n); }},
    {"plain, nothrow", [](std::size_t n) { return ::operator new(n, std::nothrow); },
     [](void* p, std::size_t) { ::operator delete(p, std::nothrow); }},
    {"array", [](std::size_t n) { return ::operator new[](n); }, [](void* p, std::size_t) { ::operator delete[](p); }},
    {"array, sized", [](std::size_t n) { return ::operator new[](n); },
     [](void* p, std::size_t n) { ::operator delete[](p, n); }},
    {"array, nothrow", [](std::size_t n) { return ::operator new[](n, std::nothrow); },
     [](void* p, std::size_t) { ::operator delete[](p, std::nothrow); }},
    {"aligned", [](std::size_t n) { return ::operator new(n, WIDE); },
     [](void* p, std::size_t) { ::operator delete(p, WIDE); }},
    {"aligned, sized", [](std::size_t n) { return ::operator new(n, WIDE); },
     [](void* p, std::size_t n) { ::operator delete(p, n, WIDE); }},
    {"aligned, nothrow", [](std::size_t n) { return ::operator new(n, WIDE, std::nothrow); },
     [](void* p, std::size_t) { ::operator delete(p, WIDE, std::nothrow); }},
    {"aligned array", [](std::size_t n) { return ::operator new[](n, WIDE); },
     [](void* p, std::size_t) { ::operator delete[](p, WIDE); }},
    {"aligned array, sized", [](std::size_t n) { return ::operator new[](n, WIDE); },
     [](void* p, std::size_t n) { ::operator delete[](p, n, WIDE); }},
    {"aligned array, nothrow", [](std::size_t n) { return ::operator new[](n, WIDE, std::nothrow); },
     [](void* p, std::size_t) { ::operator delete[](p, WIDE, std::nothrow); }}};

static std::size_t heap_in_use()
{
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST(operator_delete, gives_memory_of_each_form_back_to_the_heap)
{
  NEEDS_OWN_NEW();
  const std::size_t size = 5000;
  const std::size_t rounds = 100;
  for (const Form& form : FORMS) {
    SCOPED_TRACE(form.name);
    const std::size_t before = heap_in_use();
    void* const p = form.allocate(size);
    const std::size_t meanwhile = heap_in_use();
    form.release(p, size);
    for (std::size_t i = 1; i < rounds; ++i)
      form.release(form.allocate(size), size);
    const std::size_t after = heap_in_use();

    EXPECT_LE(before + size, meanwhile);
    EXPECT_GT(before + rounds * size / 10, after); // the C library keeps a few small pieces, such as those that
                                                   // aligning leaves over, and counts them as used
  }
}

// The test above cannot see whether memory comes back to the reserve: the heap stays as it is either way.
TEST(operator_delete, gives_memory_of_each_form_back_to_the_reserve)
{
  NEEDS_OWN_NEW();
  for (const Form& form : FORMS) {
    SCOPED_TRACE(form.name);
    const Handler_Memory_Guard guard;
    void* const first = form.allocate(1);
    form.release(first, 1);
    void* const second = form.allocate(1);
    form.release(second, 1);

    const bool is_wide = std::strstr(form.name, "aligned");
    EXPECT_EQ(!is_wide, is_of_reserve(first)); // memory for over-aligned types always comes from the heap
    if (!is_wide) {
      EXPECT_EQ(first, second);
    }
  }
}
