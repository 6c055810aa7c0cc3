#include "scrt/sysconf_helper.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>

#include <dlfcn.h>
#include <unistd.h>

// This stands in for sysconf in sysconf_helper.cpp. It returns the real value unless the test sets another one.
static bool faked;
static long pages;
static long page_size;

extern "C" long sysconf(int name) noexcept
{
  if (faked && name == _SC_PHYS_PAGES)
    return pages;
  if (faked && name == _SC_PAGESIZE)
    return page_size;

  static auto* const real = reinterpret_cast<long (*)(int)>(dlsym(RTLD_NEXT, "sysconf"));
  return real(name);
}

static unsigned long long memory_of(long some_pages, long some_page_size)
{
  pages = some_pages;
  page_size = some_page_size;
  faked = true;
  const unsigned long long memory = get_system_memory();
  faked = false;

  return memory;
}

TEST(get_system_memory, is_what_the_kernel_reports)
{
  unsigned long long kilobytes = 0;
  std::ifstream meminfo("/proc/meminfo");
  for (std::string word; meminfo >> word;)
    if (word == "MemTotal:")
      meminfo >> kilobytes;

  EXPECT_EQ(kilobytes * 1024, get_system_memory());
}

TEST(get_system_memory, multiplies_in_64_bits)
{
  const std::tuple<long, long, unsigned long long> cases[] = {{1, 4096, 4096},
                                                              {0, 4096, 0},
                                                              {1L << 20, 4096, 1ull << 32},
                                                              {0x7fffffff, 4096, 0x7fffffffull * 4096},
                                                              {1L << 40, 65536, 1ull << 56}};

  for (const auto& [some_pages, some_page_size, memory] : cases) {
    SCOPED_TRACE(some_pages);
    EXPECT_EQ(memory, memory_of(some_pages, some_page_size));
  }
}

TEST(get_system_memory, multiplies_what_a_failing_sysconf_returns)
{
  EXPECT_EQ(static_cast<unsigned long long>(-4096), memory_of(-1, 4096));
  EXPECT_EQ(static_cast<unsigned long long>(-1000), memory_of(1000, -1));
  EXPECT_EQ(1ull, memory_of(-1, -1));
}
