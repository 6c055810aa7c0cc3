// The support library is tested as other programs get it: installed, found by CMake and by pkg-config, and linked as an
// archive.

#include "tests/support/command.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

namespace fs = std::filesystem;

static void expect_success(const std::string& command)
{
  const Ended result = run(command);
  ASSERT_EQ(0, result.status) << command << '\n' << result.output;
}

class library_package : public ::testing::Test
{
protected:
  // The library is installed in one place and moved to another, so nothing in it may depend on either place.
  void SetUp() override
  {
    NEEDS(can_trace(), "strace and the right to trace processes");
    NEEDS(has_tool("pkg-config"), "pkg-config");

    expect_success(CMAKE_PROGRAM " --install " PROJECT_BUILD_DIR " --prefix " + dir_ / "first");
    fs::rename(dir_ / "first", prefix_);
  }

  void build_by_cmake(const std::string& languages)
  {
    expect_success(
        CMAKE_PROGRAM " -S " CONSUMER_DIR " -B " + binary_ +
        " -DCMAKE_C_COMPILER=" C_COMPILER " -DCMAKE_CXX_COMPILER=" CXX_COMPILER " -DCMAKE_PREFIX_PATH=" + prefix_ +
        " '-DCMAKE_C_FLAGS=" BUILD_FLAGS "' '-DCMAKE_CXX_FLAGS=" BUILD_FLAGS "' '-DCONSUMER_LANGUAGES=" + languages +
        '\'');
    expect_success(CMAKE_PROGRAM " --build " + binary_);
  }

  void build_by_pkg_config(const std::string& compiler, const std::string& source, const std::string& program)
  {
    fs::create_directories(binary_);
    expect_success("export PKG_CONFIG_PATH=$(dirname $(find " + prefix_ + " -name scrt.pc)) && " + compiler +
                   " " BUILD_FLAGS " -o " + binary_ + '/' + program + " $(pkg-config --cflags scrt) " CONSUMER_DIR "/" +
                   source + " $(pkg-config --libs scrt)");
  }

  void expect_c_consumer_works()
  {
    const Ended result = run(binary_ + "/c_consumer");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("enabled 1, before 0, result 0, after 1\n", result.output);
  }

  void expect_cxx_consumer_works()
  {
    const Ended result = run(binary_ + "/cxx_consumer " + dir_ / "work");
    EXPECT_EQ(0, result.status);
    EXPECT_NE(std::string::npos, result.output.find("stream 1, descriptor 1\n"
                                                    "exists 1, made 0\n"
                                                    "reactor 1, number 42\n"
                                                    "text 1, grown\n"))
        << result.output;
    EXPECT_NE(std::string::npos, result.output.find("logged\n")) << result.output;
    EXPECT_TRUE(fs::is_directory(dir_ / "work/etc/a"));
  }

  // The program uses nothing of the library. The library starts a shell nevertheless when it is loaded.
  void expect_idle_consumer_probes()
  {
    const std::string trace = dir_ / "trace";
    // The leak checker is a tracer too, and a process has only one.
    expect_success("ASAN_OPTIONS=detect_leaks=0 strace -f -o " + trace + " -e trace=execve " + binary_ +
                   "/idle_consumer");
    const std::string calls = read_file(trace);
    EXPECT_NE(std::string::npos, calls.find("execve(\"/bin/true\", ")) << calls;
  }

  const Temp_Dir dir_;
  const std::string prefix_ = dir_ / "second";
  const std::string binary_ = dir_ / "build";
};

static std::set<std::string> headers_in(const fs::path& dir)
{
  std::set<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir))
    if (entry.path().extension() == ".h")
      names.insert(entry.path().filename());
  return names;
}

TEST_F(library_package, has_every_header)
{
  EXPECT_EQ(headers_in(SOURCE_DIR "/scrt"), headers_in(prefix_ + "/include/scrt"));
}

TEST_F(library_package, names_no_directory_of_the_build)
{
  const Ended result = run("grep -rlI -e " SOURCE_DIR " -e " PROJECT_BUILD_DIR " " + prefix_);
  EXPECT_EQ(1, result.status) << result.output; // text files only: the archive names directories for a debugger
}

TEST_F(library_package, serves_programs_built_by_cmake)
{
  build_by_cmake("C;CXX");
  ASSERT_FALSE(HasFatalFailure());

  expect_c_consumer_works();
  expect_cxx_consumer_works();
  expect_idle_consumer_probes();
}

TEST_F(library_package, serves_programs_built_by_cmake_in_c_alone)
{
  build_by_cmake("C");
  ASSERT_FALSE(HasFatalFailure());

  expect_c_consumer_works();
  expect_idle_consumer_probes();
}

TEST_F(library_package, serves_programs_built_by_pkg_config)
{
  build_by_pkg_config(C_COMPILER, "c_consumer.c", "c_consumer");
  build_by_pkg_config(CXX_COMPILER " -std=c++17", "cxx_consumer.cpp", "cxx_consumer");
  build_by_pkg_config(C_COMPILER, "idle_consumer.c", "idle_consumer");
  ASSERT_FALSE(HasFatalFailure());

  expect_c_consumer_works();
  expect_cxx_consumer_works();
  expect_idle_consumer_probes();
}

// Doxygen leaves out the functions of a header without this comment.
TEST(library_sources, state_in_each_header_what_it_is_about)
{
  for (const std::string& name : headers_in(SOURCE_DIR "/scrt"))
    EXPECT_NE(std::string::npos, read_file(SOURCE_DIR "/scrt/" + name).find("/// @file\n/// ")) << name;
}

// The compiler gets only the root of the repository to include from and the framework to link.
TEST(library_sources, compile_and_link_without_the_build_system)
{
  const Temp_Dir dir;
  const std::string program = dir / "program";
  expect_success("cd " SOURCE_DIR " && " CXX_COMPILER " -std=c++17 -I. -o " + program +
                 " tests/consumer/cxx_consumer.cpp scrt/*.cpp -lACE -lpthread");

  const Ended result = run(program + ' ' + dir / "work");
  EXPECT_EQ(0, result.status);
  EXPECT_NE(std::string::npos, result.output.find("text 1, grown\n")) << result.output;
}
