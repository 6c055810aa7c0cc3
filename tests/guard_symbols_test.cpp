#include "companions/guard/symbols.h"

#include <ace/Reactor.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <dlfcn.h>
#include <execinfo.h>

namespace
{
std::uintptr_t address_of(const char* function)
{
  return reinterpret_cast<std::uintptr_t>(::dlsym(RTLD_DEFAULT, function));
}

std::string describe(std::uintptr_t ip)
{
  char text[512];
  const std::size_t length = describe_address(ip, text, sizeof text);
  return std::string(text, length);
}

std::string describe_as_back_traces_do(std::uintptr_t ip)
{
  void* const address = reinterpret_cast<void*>(ip);
  char** const lines = backtrace_symbols(&address, 1);
  const std::string line = *lines;
  std::free(lines);
  return line;
}
} // namespace

TEST(guard_symbols, names_an_address_as_back_traces_do)
{
  const std::uintptr_t addresses[] = {address_of("_ZN9ACE_Token14shared_acquireEPFvPvES0_P14ACE_Time_ValueNS_"
                                                 "17ACE_Token_Op_TypeE") +
                                          20,
                                      address_of("qsort") + 7, address_of("_ZSt9terminatev") + 2, 0x1000};

  for (const std::uintptr_t address : addresses) {
    ASSERT_LT(0x100u, address);
    EXPECT_EQ(describe_as_back_traces_do(address), describe(address));
  }
}

TEST(guard_symbols, names_the_library_alone_for_a_function_that_is_not_exported)
{
  const std::string line = describe(reinterpret_cast<std::uintptr_t>(&describe));

  EXPECT_NE(std::string::npos, line.find("guard_symbols_test(+0x")) << line;
}

TEST(guard_symbols, cuts_a_text_that_is_too_long)
{
  char text[8];

  EXPECT_EQ(7u, describe_address(address_of("qsort") + 7, text, sizeof text));
  EXPECT_EQ('\0', text[7]);
}

TEST(guard_symbols, finds_the_loop_in_the_framework)
{
  const std::uintptr_t loop = address_of("_ZN11ACE_Reactor22run_reactor_event_loopEPFiPS_E");

  EXPECT_EQ(loop, find_loop_function().begin);
  EXPECT_LT(loop + 16, find_loop_function().end);
  EXPECT_TRUE(find_framework_modules().hold(loop));
  EXPECT_FALSE(find_framework_modules().hold(address_of("qsort")));
}

// Those of the token and of dev_poll; the reactors built on select are templates, which the program has too.
TEST(guard_symbols, finds_the_functions_in_which_a_thread_waits)
{
  Address_Range ranges[32];
  const std::size_t count = find_waiting_functions(ranges, 32);

  ASSERT_LE(2u, count);
  const std::uintptr_t token =
      address_of("_ZN9ACE_Token14shared_acquireEPFvPvES0_P14ACE_Time_ValueNS_17ACE_Token_Op_TypeE");
  bool is_found = false;
  for (std::size_t i = 0; i < count; ++i)
    is_found = is_found || ranges[i].begin == token;
  EXPECT_TRUE(is_found);
  EXPECT_EQ(1u, find_waiting_functions(ranges, 1));
}
