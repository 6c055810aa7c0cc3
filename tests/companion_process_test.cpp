// What holds for each companion alike: it is installed with all that belongs to it, the checker accepts its file, and
// it is loaded, reloaded and ended. What a companion does is tested in a file of its own.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/loops.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <signal.h>

namespace fs = std::filesystem;

// ---- The installed files

class installed_companions : public testing::Test
{
protected:
  static void SetUpTestSuite()
  {
    dir_ = std::make_unique<Temp_Dir>();
    for (const char* const component : {"libstarter-metrics0", "starter-companions"})
      (void)output_of("umask 022 && " CMAKE_PROGRAM " --install " PROJECT_BUILD_DIR " --component " +
                      std::string(component) + " --prefix " + dir_->path());
  }

  static void TearDownTestSuite() { dir_.reset(); }

  // The library of the metrics is where the dynamic loader looks only if the prefix is one of the system.
  static std::string library_path()
  {
    const std::string file = without_newline(output_of("find " + dir_->path() + " -name libstarter-metrics.so.0"));
    return file.substr(0, file.rfind('/'));
  }

  static std::string checker() { return "LD_LIBRARY_PATH=" + library_path() + " " TESTS_CHECKER " -q -f "; }
  static std::string conf_dir() { return *dir_ / "share/starter/companions"; }

  static std::unique_ptr<Temp_Dir> dir_;
};

std::unique_ptr<Temp_Dir> installed_companions::dir_;

TEST_F(installed_companions, have_a_page_of_one_screen_and_a_manual_page_each)
{
  for (const std::string& name : companion_names()) {
    SCOPED_TRACE(name);
    const std::string page = read_file(*dir_ / ("share/doc/starter-companions/" + name + "/README.md"));
    EXPECT_NE("", page);
    EXPECT_GE(50u, lines_of(page).size());
    EXPECT_NE("", read_file(*dir_ / ("share/man/man8/starter-" + name + ".8")));
  }
}

TEST_F(installed_companions, have_configuration_files_without_a_finding)
{
  for (const std::string& name : companion_names())
    EXPECT_EQ("", output_of(checker() + conf_dir() + '/' + name + ".conf"));
  EXPECT_EQ("", output_of(checker() + conf_dir()));
}

TEST_F(installed_companions, are_all_that_is_installed)
{
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(conf_dir()))
    files.push_back(entry.path().stem());
  EXPECT_THAT(files, testing::UnorderedElementsAreArray(companion_names()));
}

// A directive that loads nothing is silent, so the library itself is looked for.
TEST_F(installed_companions, are_loaded_by_their_files)
{
  const Temp_Dir runtime;
  Start_Options options;
  options.env["LD_LIBRARY_PATH"] = library_path();
  options.env["RUNTIME_DIRECTORY"] = runtime.path();
  Starter_Process starter({"-f", conf_dir()}, options);
  ASSERT_TRUE(starter.wait_for_event_loop());

  const std::string maps = read_file("/proc/" + std::to_string(starter.pid()) + "/maps");
  EXPECT_NE(std::string::npos, maps.find(dir_->path() + "/lib")) << maps;
  for (const std::string& name : companion_names())
    EXPECT_NE(std::string::npos, maps.find("/starter/libstarter_" + name + ".so\n")) << maps;

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

// ---- Each of them in the program

class companion : public testing::TestWithParam<std::string>
{
};

// The functions for other services stand in companions/NAME/NAME.h.
TEST_P(companion, exports_nothing_but_its_factory_and_the_functions_of_its_header)
{
  const std::string library = companion_directive(GetParam());
  const std::size_t path = library.rfind(" * ") + 3;
  const std::string symbols = output_of(
      "nm -D --defined-only " + library.substr(path, library.rfind(":_make_") - path) + " | grep -v ' [VWwu] '");

  std::vector<std::string> names;
  for (const std::string& line : lines_of(symbols))
    if (line.find("__") == std::string::npos) // the runtimes of sanitizers and of coverage have names of their own
      names.push_back(line.substr(line.rfind(' ') + 1));
  const std::string header = read_file(TESTS_COMPANION_SOURCE_DIR "/" + GetParam() + '/' + GetParam() + ".h");
  unsigned factories = 0;
  for (const std::string& name : names) {
    const bool is_factory = name.rfind("_make_", 0) == 0;
    factories += is_factory;
    EXPECT_TRUE(is_factory || header.find(' ' + name + '(') != std::string::npos) << name;
  }
  EXPECT_EQ(1u, factories);
}

TEST_P(companion, refuses_an_option_that_it_does_not_know_with_one_error_record)
{
  Temp_Dir dir;
  Starter_Process starter({"-f", dir.write("x.conf", companion_directive(GetParam(), "-Z"))}, probed());
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();

  std::vector<Record> errors;
  for (const Record& record : starter.records())
    if (record.file.compare(0, 11, "companions/") == 0)
      errors.push_back(record);
  ASSERT_EQ(1u, errors.size()) << starter.log();
  EXPECT_EQ(LM_ERROR, errors[0].priority);
  EXPECT_EQ(-1, errors[0].status);
  EXPECT_EQ(0u, errors[0].text.find("Failed to start the " + GetParam() + ": ")) << errors[0].text;
  EXPECT_NE(std::string::npos, errors[0].text.find("-Z")) << errors[0].text;
}

static std::string case_name(const testing::TestParamInfo<std::string>& info)
{
  return info.param;
}

INSTANTIATE_TEST_SUITE_P(each, companion, testing::ValuesIn(companion_names()), case_name);
