// The library of the metrics as services get it: installed, found by CMake and by pkg-config. The service is the one of
// the guide.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/guide.h"
#include "tests/support/requirements.h"
#include "tests/support/scrape.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace
{
class metrics_package : public testing::Test
{
protected:
  // The packages are installed in one place and moved to another, so nothing in them may depend on either place.
  void SetUp() override
  {
    for (const char* const component : {"libscrt-dev", "libstarter-metrics0", "libstarter-metrics-dev"})
      (void)output_of("umask 022 && " CMAKE_PROGRAM " --install " PROJECT_BUILD_DIR " --component " +
                      std::string(component) + " --prefix " + dir_ / "first");
    fs::rename(dir_ / "first", prefix_);
    library_dir_ =
        fs::path(without_newline(output_of("find " + prefix_ + " -name libstarter-metrics.so.0"))).parent_path();
    for (const Block& block : blocks_of(read_file(SOURCE_DIR "/doc/writing-a-service.md")))
      if (block.path.rfind("counted", 0) == 0)
        (void)dir_.write(block.path, block.text);
  }

  // The service counts, and is loaded before the companion.
  void expect_service_counts(const std::string& library)
  {
    const std::string conf = dir_.write("x.conf", "dynamic Counted Service_Object * " + library +
                                                      ":_make_Counted() \"\"\n" + companion_directive("metrics"));
    Start_Options options;
    options.env["LD_LIBRARY_PATH"] = library_dir_;
    Starter_Process starter({"-f", conf}, options);
    const std::string address = metrics_address(starter);
    const std::string series = "counted_ticks_total{timer=\"first\"}";
    ASSERT_TRUE(wait_until([&] { return value_of(scrape(address), series) > 3; })) << starter.log();

    starter.send(SIGHUP);
    ASSERT_TRUE(wait_until([&] { return value_of(scrape(address), "starter_reloads_total") == 1; })) << starter.log();
    EXPECT_LT(3, value_of(scrape(address), series));
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }

  const Temp_Dir dir_;
  const std::string prefix_ = dir_ / "second";
  std::string library_dir_;
};
} // namespace

TEST_F(metrics_package, serves_a_service_that_is_built_by_cmake)
{
  (void)output_of(CMAKE_PROGRAM " -S " + dir_ / "counted" + " -B " + dir_ / "build" +
                  " -DCMAKE_CXX_COMPILER=" CXX_COMPILER " -DCMAKE_PREFIX_PATH=" + prefix_ +
                  " '-DCMAKE_CXX_FLAGS=" BUILD_FLAGS "' && " CMAKE_PROGRAM " --build " + dir_ / "build");
  expect_service_counts(dir_ / "build/libcounted.so");
}

TEST_F(metrics_package, serves_a_service_that_is_built_by_pkg_config)
{
  NEEDS(has_tool("pkg-config"), "pkg-config");
  (void)output_of("export PKG_CONFIG_PATH=" + library_dir_ +
                  "/pkgconfig && " CXX_COMPILER " " BUILD_FLAGS " -std=c++17 -fPIC -shared -o " +
                  dir_ / "libcounted.so " + dir_ / "counted.cpp" +
                  " $(pkg-config --cflags --libs starter-metrics) -lACE");
  expect_service_counts(dir_ / "libcounted.so");
}

TEST_F(metrics_package, needs_no_header_of_another_library)
{
  const std::string used = output_of(CXX_COMPILER " -std=c++17 -M -x c++ -I " + prefix_ + "/include " + prefix_ +
                                     "/include/starter/metrics.h");
  EXPECT_EQ(std::string::npos, used.find("prometheus")) << used;
  EXPECT_EQ(std::string::npos, used.find("/ace/")) << used;
}

TEST_F(metrics_package, exports_nothing_but_its_interface)
{
  const std::string symbols =
      output_of("nm -DC --defined-only " + library_dir_ + "/libstarter-metrics.so.0 | grep -v ' [VWwu] '");
  for (const std::string& line : lines_of(symbols))
    if (line.find("__") == std::string::npos) { // the runtimes of sanitizers and of coverage have names of their own
      EXPECT_THAT(line, testing::HasSubstr(" starter::"));
    }
  EXPECT_THAT(output_of("readelf -d " + library_dir_ + "/libstarter-metrics.so.0"),
              testing::AllOf(testing::HasSubstr("[libstarter-metrics.so.0]"), testing::HasSubstr("NODELETE")));
}
