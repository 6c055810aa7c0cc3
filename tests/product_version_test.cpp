// The header that the build writes from the project's version and its checkout.

#include "tests/support/command.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class product_version : public testing::Test
{
protected:
  product_version()
  {
    // The test must not depend on the git settings of the account, or of a git command that runs the test.
    setenv("HOME", dir_.path().c_str(), 1);
    setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    setenv("GIT_CEILING_DIRECTORIES", dir_.path().c_str(), 1);
    for (const char* const name : {"GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE"})
      unsetenv(name);
  }

  void commit(const std::string& folder)
  {
    (void)output_of("cd " + dir_ / folder +
                    " && git init -q && git -c user.name=t -c user.email=t@t commit -q --allow-empty -m t");
  }

  // Lets the build's script write the header for the tree in `folder`, and reads it.
  std::string write(const std::string& folder, const std::string& version = "1.2.3")
  {
    std::filesystem::create_directories(dir_ / folder);
    (void)output_of("cmake -D SOURCE_DIR=" + dir_ / folder + " -D VERSION=" + version + " -D HEADER=" + header_ +
                    " -P " + TESTS_PRODUCT_VERSION_SCRIPT);
    return read_file(header_);
  }

  static std::string content(const std::string& version, const std::string& revision)
  {
    return "#define STARTER_VERSION \"" + version + "\"\n#define STARTER_REVISION \"" + revision + "\"\n";
  }

  const Temp_Dir dir_;
  const std::string header_ = dir_ / "build/starter/version.h";
};

TEST_F(product_version, has_a_fixed_word_for_the_revision_without_a_checkout)
{
  EXPECT_EQ(content("1.2.3", "unknown"), write("tree"));
}

TEST_F(product_version, has_the_revision_of_the_checkout)
{
  std::filesystem::create_directories(dir_ / "tree");
  commit("tree");

  EXPECT_EQ(content("1.2.3", output_of("git -C " + dir_ / "tree" + " rev-parse HEAD").substr(0, 12)), write("tree"));
}

TEST_F(product_version, does_not_take_the_revision_of_a_checkout_around_the_tree)
{
  std::filesystem::create_directories(dir_ / "outer/tree");
  commit("outer");

  EXPECT_EQ(content("1.2.3", "unknown"), write("outer/tree"));
}

TEST_F(product_version, has_a_fixed_word_before_the_first_commit)
{
  std::filesystem::create_directories(dir_ / "tree");
  (void)output_of("git init -q " + dir_ / "tree");

  EXPECT_EQ(content("1.2.3", "unknown"), write("tree"));
}

TEST_F(product_version, touches_the_header_only_when_it_changes)
{
  write("tree");
  const auto old = std::filesystem::last_write_time(header_) - std::chrono::hours(1);
  std::filesystem::last_write_time(header_, old);

  write("tree");
  EXPECT_EQ(old, std::filesystem::last_write_time(header_));

  EXPECT_EQ(content("1.2.4", "unknown"), write("tree", "1.2.4"));
  EXPECT_NE(old, std::filesystem::last_write_time(header_));

  commit("tree");
  EXPECT_NE(content("1.2.4", "unknown"), write("tree", "1.2.4"));
}
