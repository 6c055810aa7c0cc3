#include "tests/support/stl_declarations.h"

#include "starter/starter.h"
#include "tests/support/command.h"
#include "tests/support/starter_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>

// The names of the symbols that the executable defines, as nm prints them with `options`.
static std::set<std::string> symbols(const std::string& options)
{
  const std::string command = "nm --defined-only --format=posix " + options + " '" + starter_executable() + "'";
  // The demangled name of a symbol may contain blanks. Its type and value follow it.
  std::set<std::string> names;
  static const std::regex fields("^(.*) [A-Za-z] [0-9a-f]+( [0-9a-f]*)?$");
  std::smatch match;
  for (const std::string& line : lines_of(output_of(command)))
    if (std::regex_match(line, match, fields))
      names.insert(match[1]);
  return names;
}

TEST(stl_symbols, exports_the_code_that_services_bind_to)
{
  const std::set<std::string> exported = symbols("--dynamic");
  // These are beginnings of names: the constraints on the arguments of std::swap, which follow, differ among libraries.
  const std::pair<const char*, std::string> cases[] = {
      {"std::max<unsigned long>", "_ZSt3maxImERKT_S2_S2_"},
      {"std::max<long>", "_ZSt3maxIlERKT_S2_S2_"},
      {"std::swap<unsigned long>", "_ZSt4swapImE"},
      {"std::swap<std::less<std::string>>", "_ZSt4swapISt4lessINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEEE"},
      {"std::less<std::string>::operator()",
       "_ZNKSt4lessINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEEclERKS5_S8_"},
      {"std::string::string(const char*)", "_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEC1IS3_EEPKcRKS3_"},
      {"std::string::~string()", "_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEED1Ev"}};

  for (const auto& [name, symbol] : cases) {
    const auto found = exported.lower_bound(symbol);
    EXPECT_TRUE(found != exported.end() && found->compare(0, symbol.size(), symbol) == 0) << name;
  }
}

// The names that the program and its library define, except those for C programs.
static const std::regex
    OWN_NAMES("\\b(parse_uid_gid|find_file_extension|is_file_extension|is_regular_file|init_signal_handlers|"
              "handle_terminate|init_stl_symbols|open_service_config|is_safe_to_substitute|add_option|"
              "find_service_configs|do_open_service|get_reactor|get_reactor_factory|make_reactor|make_reactor_table|"
              "get_key_value_entry|natoi|natoi_traits|vformat|snprintf_t|string_sprintf|string_vsprintf|event_loop|"
              "run_event_loop|Systemd_Handler|new_event_handler|get_env_r|set_env|append_env|prepend_env|mkdir_p|"
              "mkdir_p_t|longest_exist_dirname|Path_Conf|get_system_memory|get_vm_swappiness|log_system_info|"
              "log_product_info|init_compat_opens|Starter_Options|Handler_Memory_Guard|main)\\b");

static std::set<std::string> own_names(const std::set<std::string>& names)
{
  std::set<std::string> own;
  for (const std::string& name : names)
    if (std::regex_search(name, OWN_NAMES))
      own.insert(name);
  return own;
}

TEST(stl_symbols, exports_no_function_of_the_program_itself)
{
  EXPECT_THAT(own_names(symbols("--dynamic --demangle")), ::testing::IsEmpty());
}

// This test complements the one above, which could not fail if the names were wrong.
TEST(stl_symbols, hides_functions_that_the_program_defines)
{
  const std::set<std::string> all = symbols("--demangle");
  if (all.empty())
    GTEST_SKIP() << "a stripped executable names nothing but what it exports";

  for (const char* const name : {"main", "parse_uid_gid(char const*)", "init_signal_handlers()", "handle_terminate()",
                                 "init_stl_symbols()", "get_reactor_factory(char const*, unsigned int)"})
    EXPECT_EQ(1u, own_names(all).count(name)) << name;
}

TEST(stl_symbols, exports_nothing_but_code_of_the_libraries)
{
  // Operators have no scope of their own; those of the framework take its types.
  static const std::regex libraries("[^(]*\\b(std|__gnu_cxx|boost|ACE|ACE_\\w+|ace_\\w+)\\b.*|operator[^ (]+\\(ACE_.*|"
                                    "operator (new|delete)(\\[\\])?\\(.*|decltype \\(.*\\b(std|__gnu_cxx)::.*");
  static const std::regex of_the_tools(
      "_IO_stdin_used|__bss_start|__data_start|data_start|_edata|_end|_start|_init|_fini|"
      "__start_.*|__stop_.*|__odr_asan.*|__[a-z]+san_.*|\\w*gcov\\w*|mangle_path");
  static const std::regex copied_data(".*@.*"); // data of a library with symbol versions, such as stderr
  static const std::regex for_c_programs("enable_fd_cloexec|o_cloexec_enabled");

  for (const std::string& name : symbols("--dynamic --demangle"))
    EXPECT_TRUE(std::regex_match(name, libraries) || std::regex_match(name, of_the_tools) ||
                std::regex_match(name, copied_data) || std::regex_match(name, for_c_programs))
        << name;
}

TEST(stl_symbols, prefers_the_second_of_equal_values)
{
  const unsigned long l = 7;
  const unsigned long r = 7;
  const unsigned long more = 8;
  EXPECT_EQ(&r, &std::max<unsigned long>(l, r));
  EXPECT_EQ(&l, &std::max<unsigned long>(r, l));
  EXPECT_EQ(&more, &std::max<unsigned long>(more, l));
  EXPECT_EQ(&more, &std::max<unsigned long>(l, more));

  const long sl = -7;
  const long sr = -7;
  const long less = -8;
  EXPECT_EQ(&sr, &std::max<long>(sl, sr));
  EXPECT_EQ(&sl, &std::max<long>(sr, sl));
  EXPECT_EQ(&sl, &std::max<long>(sl, less));
  EXPECT_EQ(&sl, &std::max<long>(less, sl));
}

TEST(stl_symbols, swaps_two_values)
{
  unsigned long l = 1;
  unsigned long r = 2;

  std::swap<unsigned long>(l, r);

  EXPECT_EQ(2u, l);
  EXPECT_EQ(1u, r);
}

TEST(stl_symbols, are_instantiated_without_a_record)
{
  const Log_Capture log;

  init_stl_symbols();

  EXPECT_TRUE(log.records().empty());
}

TEST(stl_symbols, provides_a_service_with_the_code)
{
  Starter_Process starter({"-S", dynamic_directive("U", "stl_user", "_make_Stl_User")}, probed());

  EXPECT_TRUE(starter.wait_for_record("found in:")) << starter.log();

  const std::string program = starter_executable().substr(starter_executable().rfind('/') + 1);
  EXPECT_EQ(1u, starter.count("max of equal values: second, second")) << starter.log();
  EXPECT_EQ(1u, starter.count("swapped: 2, 1")) << starter.log();
  EXPECT_EQ(1u, starter.count("less: 1, 0")) << starter.log();
  EXPECT_EQ(1u, starter.count("found in: " + program + ", " + program + '\n')) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}
