// The package of the companions as a file.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/debian_packages.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

class companion_package : public testing::Test
{
protected:
  static void SetUpTestSuite()
  {
    dir_ = std::make_unique<Temp_Dir>();
    packages_ = std::make_unique<Debian_Packages>();
    deb_ = packages_->file("starter-companions");
    library_debs_ = packages_->file("libstarter-metrics0") + ' ' + packages_->file("libstarter-metrics-dev");
    (void)output_of("dpkg-deb --extract " + deb_ + ' ' + *dir_ / "data");
  }

  static void TearDownTestSuite()
  {
    packages_.reset();
    dir_.reset();
  }

  static std::unique_ptr<Temp_Dir> dir_;
  static std::unique_ptr<Debian_Packages> packages_;
  static std::string deb_;
  static std::string library_debs_; // of the metrics
};

std::unique_ptr<Temp_Dir> companion_package::dir_;
std::unique_ptr<Debian_Packages> companion_package::packages_;
std::string companion_package::deb_;
std::string companion_package::library_debs_;

TEST_F(companion_package, is_found_without_fault_by_lintian)
{
  NEEDS(has_tool("lintian"), "lintian");
  EXPECT_EQ("", output_of("lintian --allow-root --fail-on error,warning " + deb_ + ' ' + library_debs_));
}

TEST_F(companion_package, has_all_of_each_companion_and_nothing_of_the_program)
{
  const std::vector<std::string> files = lines_of(output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar t"));

  const std::string lib = without_newline(output_of("cd " + *dir_ / "data" + " && ls -d ./usr/lib/*/starter"));
  for (const std::string& name : companion_names())
    for (const std::string& file :
         {lib + "/libstarter_" + name + ".so", "./usr/share/starter/companions/" + name + ".conf",
          "./usr/share/man/man8/starter-" + name + ".8.gz",
          "./usr/share/doc/starter-companions/" + name + "/README.md"})
      EXPECT_THAT(files, testing::Contains(file));
  for (const std::string& file : files) {
    EXPECT_EQ(std::string::npos, file.find("bin/")) << file;
    EXPECT_EQ(std::string::npos, file.find("/doc/starter/")) << file;
  }
}

TEST_F(companion_package, depends_on_the_program_of_the_same_version)
{
  const std::string version = without_newline(output_of("dpkg-deb --field " + deb_ + " Version"));
  const std::string depends = output_of("dpkg-deb --field " + deb_ + " Depends");
  EXPECT_NE(std::string::npos, depends.find("starter (= " + version + ')')) << depends;
  EXPECT_NE(std::string::npos, depends.find("libstarter-metrics0 (= " + version + ')')) << depends;
  EXPECT_NE(std::string::npos, depends.find("libace-7.0.8")) << depends;
}

TEST_F(companion_package, has_stripped_libraries_and_names_no_directory_of_the_build)
{
  EXPECT_EQ("", output_of("nm -A " + *dir_ / "data/usr/lib/*/starter/*.so" + " 2>/dev/null | sed '/:$/d; /^$/d'"));
  EXPECT_EQ("", output_of("! grep -rl -e " TESTS_SOURCE_DIR " -e " + dir_->path() + ' ' + *dir_ / "data"));
}

TEST_F(companion_package, has_what_prometheus_is_told_with)
{
  const std::vector<std::string> files = lines_of(output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar t"));
  for (const std::string file :
       {"prometheus.yml", "starter-alerts.yml", "starter-alerts-test.yml", "starter-dashboard.json"})
    EXPECT_THAT(files, testing::Contains("./usr/share/starter/prometheus/" + file));
}

TEST_F(companion_package, comes_with_one_for_the_metrics_of_services_and_one_for_their_authors)
{
  const std::string files =
      output_of("for deb in " + library_debs_ + "; do dpkg-deb --fsys-tarfile $deb | tar t; done");
  for (const char* const file :
       {"/libstarter-metrics.so.0\n", "/libstarter-metrics.so\n", "/pkgconfig/starter-metrics.pc\n",
        "/usr/include/starter/metrics.h\n", "/cmake/starter-metrics/starter-metrics-config.cmake\n"})
    EXPECT_THAT(files, testing::HasSubstr(file));
}

// The paths are those of the root that the package is installed to.
TEST_F(companion_package, has_configuration_files_that_name_the_libraries_in_the_package)
{
  for (const std::string& name : companion_names()) {
    const std::string conf = read_file(*dir_ / ("data/usr/share/starter/companions/" + name + ".conf"));
    const std::size_t begin = conf.rfind(" * /") + 3;
    const std::string library = conf.substr(begin, conf.find(':', begin) - begin);
    EXPECT_EQ(0u, library.find("/usr/lib/")) << conf;
    EXPECT_NE("", read_file(*dir_ / "data" + library)) << library;
  }
}
