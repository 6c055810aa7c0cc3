// The tests follow the guides: they write the files that a guide shows, run its commands in order, and look for the
// output that it promises.

#include "tests/support/command.h"
#include "tests/support/guide.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

static void follow(const std::string& name, unsigned commands)
{
  const Temp_Dir dir;
  const std::vector<Block> blocks = blocks_of(read_file(SOURCE_DIR "/" + name));
  // Only the support library is installed: a guide looks for nothing else below the prefix.
  const Ended installed =
      run(CMAKE_PROGRAM " --install " PROJECT_BUILD_DIR " --component libscrt-dev --prefix " + dir / "usr");
  ASSERT_EQ(0, installed.status) << installed.output;
  std::filesystem::create_directory(dir / "work");

  const std::string script = dir.write("script", script_of(blocks, "sh"));
  const auto [status, output] =
      run("cd " + dir / "work" + " && env -u MAKEFLAGS PATH=" STARTER_DIR ":" CHECKER_DIR ":\"$PATH\" " +
          "CMAKE_PREFIX_PATH=" + dir / "usr" +
          " CXX=" CXX_COMPILER " CXXFLAGS='" BUILD_FLAGS "' LD_LIBRARY_PATH=" EXAMPLE_LIBRARY_DIR
          " timeout -k 5 120 bash -eu " +
          script);
  ASSERT_EQ(0, status) << output;

  EXPECT_EQ(commands, expect_promised_output(blocks, "sh", output));
}

TEST(guide, readme_works_as_it_says)
{
  follow("README.md", 2);
}

TEST(guide, writing_a_service_works_as_it_says)
{
  follow("doc/writing-a-service.md", 8);
}

TEST(guide, foreign_services_works_as_it_says)
{
  follow("doc/foreign-services.md", 1);
}

TEST(guide, operating_works_as_it_says)
{
  follow("doc/operating.md", 5);
}

static std::vector<std::string> guides()
{
  std::vector<std::string> paths{SOURCE_DIR "/README.md"};
  for (const char* const folder : {"doc", "examples"})
    for (const auto& entry : std::filesystem::recursive_directory_iterator(SOURCE_DIR "/" + std::string(folder)))
      if (entry.path().extension() == ".md")
        paths.push_back(entry.path());
  EXPECT_LE(9u, paths.size());
  return paths;
}

TEST(guide, refers_to_files_that_exist)
{
  const std::regex link(R"(\]\(([^)#:]+)\))");
  const std::regex source("`((?:starter|scrt|examples)/[a-z_./-]+)`");

  for (const std::string& path : guides()) {
    const std::string guide = read_file(path);
    for (std::sregex_iterator i(guide.begin(), guide.end(), link); i != std::sregex_iterator(); ++i)
      EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(path).parent_path() / (*i)[1].str()))
          << path << ": " << (*i)[1];
    for (std::sregex_iterator i(guide.begin(), guide.end(), source); i != std::sregex_iterator(); ++i)
      EXPECT_TRUE(std::filesystem::exists(SOURCE_DIR "/" + (*i)[1].str())) << path << ": " << (*i)[1];
  }
}

// One of the tests above follows each guide that has commands. package_boot_test follows the guides that speak to an
// operator of a machine, cluster_guide_test the one about clusters, demo_test what the demo of the companions prints,
// and debian_package_test the page of the examples.
TEST(guide, has_no_command_that_is_not_run)
{
  using ::testing::AnyOf;
  using ::testing::EndsWith;

  for (const std::string& path : guides())
    for (const Block& block : blocks_of(read_file(path))) {
      EXPECT_THAT(block.kind, AnyOf("sh", "shell", "every", "one", "text", "mermaid", "cpp", "cmake", "demo")) << path;
      if (block.kind == "sh") {
        EXPECT_THAT(path,
                    AnyOf(SOURCE_DIR "/README.md", EndsWith("/writing-a-service.md"), EndsWith("/foreign-services.md"),
                          EndsWith("/operating.md"), EndsWith("/examples/README.md")));
      } else if (block.kind == "shell") {
        EXPECT_THAT(path, AnyOf(EndsWith("/operating.md"), EndsWith("/installing.md")));
      } else if (block.kind == "demo") {
        EXPECT_THAT(path, EndsWith("/operating.md"));
      } else if (block.kind == "every" || block.kind == "one") {
        EXPECT_THAT(path, EndsWith("/cluster.md"));
      }
    }
}

// The second column of the troubleshooting table holds records as the manual pages have them.
TEST(guide, looks_for_records_that_the_manual_knows)
{
  const std::string pages = read_file(SOURCE_DIR "/man/starter.8") + read_file(SOURCE_DIR "/man/starter.conf.5");
  const std::string guide = read_file(SOURCE_DIR "/doc/operating.md");

  unsigned records = 0;
  const std::regex row(R"(\n\|[^|\n]+\| `((?:[^`\\]|\\.)+)` \|)");
  const std::string table = guide.substr(guide.find("| Symptom |"));
  for (std::sregex_iterator i(table.begin(), table.end(), row); i != std::sregex_iterator(); ++i) {
    const std::string record = std::regex_replace((*i)[1].str(), std::regex(R"(\\\|)"), "|");
    EXPECT_THAT(pages, ::testing::AnyOf(::testing::HasSubstr(".It Sy \"" + record + '"'),
                                        ::testing::HasSubstr(".It Sy \"" + record + "\\&\"")));
    ++records;
  }
  EXPECT_LE(12u, records);
}
