// The test builds the Debian package, checks it, installs it into a clean Debian root, runs it there and removes it.

#include "tests/support/command.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <signal.h>

namespace fs = std::filesystem;

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// ---- The package as a file

class debian_package : public testing::Test
{
protected:
  static void SetUpTestSuite()
  {
    dir_ = std::make_unique<Temp_Dir>();
    (void)output_of("umask 022 && " TESTS_CPACK " --config " TESTS_CPACK_CONFIG " -B " + *dir_ / "package");
    deb_ = lines_of(output_of("ls " + *dir_ / "package/*.deb")).at(0);
    (void)output_of("dpkg-deb --extract " + deb_ + ' ' + *dir_ / "data");
  }

  static void TearDownTestSuite() { dir_.reset(); }

  static std::unique_ptr<Temp_Dir> dir_;
  static std::string deb_;
};

std::unique_ptr<Temp_Dir> debian_package::dir_;
std::string debian_package::deb_;

static std::string field(const std::string& deb, const std::string& name)
{
  return output_of("dpkg-deb --field " + deb + ' ' + name);
}

TEST_F(debian_package, is_found_without_fault_by_lintian)
{
  NEEDS(has_tool("lintian"), "lintian");
  EXPECT_EQ("", output_of("lintian --allow-root --fail-on error,warning " + deb_));
}

TEST_F(debian_package, has_what_an_operator_needs_and_nothing_of_the_support_library)
{
  const std::vector<std::string> files = lines_of(output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar t"));

  for (const char* const file :
       {"./usr/sbin/starter", "./usr/sbin/starter-check", "./usr/share/man/man8/starter-check.8.gz",
        "./usr/share/bash-completion/completions/starter-check", "./usr/share/doc/starter/doc/operating.md",
        "./usr/share/doc/starter/examples/timer/timer.cpp", "./usr/share/doc/starter/examples/own_threads.h",
        "./usr/lib/systemd/system/starter@.service", "./usr/share/man/man8/starter.8.gz",
        "./usr/share/man/man5/starter.conf.5.gz", "./usr/share/bash-completion/completions/starter",
        "./usr/share/zsh/vendor-completions/_starter", "./usr/share/doc/starter/copyright",
        "./usr/share/doc/starter/changelog.gz", "./usr/share/doc/starter/NEWS.md",
        "./usr/share/doc/starter/examples/echo/conf.d/echo.conf"})
    EXPECT_THAT(files, Contains(file));
  for (const std::string& file : files) {
    EXPECT_EQ(std::string::npos, file.find("scrt")) << file;
    if (file.rfind("./etc/", 0) == 0) {
      EXPECT_THAT(file, AnyOf("./etc/", "./etc/starter/", "./etc/starter/README"));
    }
  }
}

TEST_F(debian_package, explains_the_directory_of_the_configuration_in_a_file_that_the_operator_may_change)
{
  EXPECT_EQ("/etc/starter/README\n", output_of("dpkg-deb --info " + deb_ + " conffiles"));
  EXPECT_EQ("drwxr-xr-x", output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar tv ./etc/starter/").substr(0, 10));

  const std::string readme = read_file(*dir_ / "data/etc/starter/README");
  EXPECT_NE(std::string::npos, readme.find("systemctl enable --now starter@NAME")) << readme;
}

TEST_F(debian_package, depends_on_what_the_program_is_linked_with)
{
  const std::string depends = field(deb_, "Depends");
  for (const char* const name : {"libace-7.0.8", "libc6", "libgcc-s1", "libstdc++6"})
    EXPECT_NE(std::string::npos, depends.find(name)) << depends;
  EXPECT_EQ(std::string::npos, depends.find("systemd")) << depends; // the library is loaded only where it is installed
}

TEST_F(debian_package, has_the_version_of_the_program_and_of_the_news)
{
  EXPECT_EQ(TESTS_PROJECT_VERSION "\n", field(deb_, "Version"));

  const std::string changelog =
      output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar xO ./usr/share/doc/starter/changelog.gz | zcat");
  EXPECT_EQ(0u, changelog.find("starter (" TESTS_PROJECT_VERSION ") ")) << changelog;
  const std::string news = read_file(TESTS_SOURCE_DIR "/NEWS.md");
  EXPECT_NE(std::string::npos, news.find("\n## " TESTS_PROJECT_VERSION ", ")) << news;
}

TEST_F(debian_package, says_that_no_licence_has_been_chosen)
{
  const std::string copyright =
      output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar xO ./usr/share/doc/starter/copyright");
  EXPECT_NE(std::string::npos, copyright.find("The owner has not chosen a licence.")) << copyright;
}

TEST_F(debian_package, has_guides_whose_links_lead_somewhere)
{
  const std::regex link(R"(\]\(([^)#:]+)\))");

  unsigned links = 0;
  for (const auto& entry : fs::recursive_directory_iterator(*dir_ / "data/usr/share/doc/starter")) {
    if (entry.path().extension() != ".md")
      continue;
    const std::string text = read_file(entry.path());
    for (std::sregex_iterator i(text.begin(), text.end(), link); i != std::sregex_iterator(); ++i, ++links)
      EXPECT_TRUE(fs::exists(entry.path().parent_path() / (*i)[1].str())) << entry.path() << ": " << (*i)[1];
  }
  EXPECT_LT(0u, links);
}

TEST_F(debian_package, has_a_stripped_program_that_names_no_directory_of_the_build)
{
  for (const char* const program : {"starter", "starter-check"})
    EXPECT_EQ("", output_of("nm " + *dir_ / "data/usr/sbin/" + program + " 2>/dev/null")) << program;
  EXPECT_EQ("", output_of("! grep -rl -e " TESTS_SOURCE_DIR " -e " + dir_->path() + ' ' + *dir_ / "data"));
}

// ---- The package in a root of its own

class debian_package_in_a_clean_root : public debian_package
{
protected:
  void SetUp() override
  {
    NEEDS(is_root(), "root, to make a system in a directory");
    NEEDS(has_tool("mmdebstrap"), "mmdebstrap");
  }

  // Makes a minimal Debian from the archives that this machine uses.
  void make_root() const
  {
    (void)output_of("apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)'"
                    " 'Created-By: Packages' 'Origin: Debian' | sort -u >" +
                    *dir_ / "sources" + " && mmdebstrap --quiet --variant=apt --mode=root --skip=cleanup/apt '' " +
                    root_ + " - <" + *dir_ / "sources");
  }

  // Runs `command` in the root, with its own mounts and processes, so that none of them outlives the command.
  std::string in_root(const std::string& command) const
  {
    return output_of("unshare --mount --pid --fork --kill-child sh -c 'mount -t proc proc " + root_ +
                     "/proc && exec chroot " + root_ + " env -i PATH=$PATH DEBIAN_FRONTEND=noninteractive " + command +
                     '\'');
  }

  // Lists every file and directory, except caches and the records of the package manager.
  std::vector<std::string> files() const
  {
    return lines_of(output_of("cd " + root_ +
                              " && find . -path ./proc -prune -o -path ./var/lib/dpkg -prune -o"
                              " -path ./var/lib/apt -prune -o -path ./var/cache -prune -o"
                              " -path ./var/log -prune -o -print | LC_ALL=C sort"));
  }

  void run_program() const
  {
    Start_Options options;
    options.wrapper = {"unshare", "--mount", "sh", "-c",
                       "mount -t proc proc " + root_ + "/proc && exec chroot " + root_ +
                           " /usr/sbin/starter --reactor tp --threads 2 -f /etc/starter/one.d"};
    options.env["COMPONENT"] = "one";
    Starter_Process starter({}, options);

    ASSERT_TRUE(starter.wait_for_record("-one " TESTS_PROJECT_VERSION)) << starter.log();
    ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
    EXPECT_EQ(1u, starter.count("Created 'tp' reactor with 2 threads\n")) << starter.log();
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();

    (void)in_root("/usr/sbin/starter-check -f /etc/starter/one.d");
  }

  // Makes the directories of systemd, which stay, and a link to a unit that has nothing to do with the package.
  void make_systemd_directories() const
  {
    fs::create_directories(root_ + "/etc/systemd/system/multi-user.target.wants");
    fs::create_symlink("/lib/systemd/system/other.service",
                       root_ + "/etc/systemd/system/multi-user.target.wants/other.service");
    fs::create_directories(root_ + "/var/lib/private");
  }

  // Leaves what an enabled component leaves: a link to the template, and its state behind a link of systemd.
  void leave_traces() const
  {
    fs::create_symlink("/lib/systemd/system/starter@.service", fs::path(root_) / WANTED_LINK);
    fs::create_directories(fs::path(root_) / STATE_DIR);
    fs::create_directories(root_ + "/var/lib/starter");
    fs::create_symlink("../private/starter/one", root_ + "/var/lib/starter/one");
  }

  static constexpr char WANTED_LINK[] = "./etc/systemd/system/multi-user.target.wants/starter@one.service";
  static constexpr char STATE_DIR[] = "./var/lib/private/starter/one";

  const std::string root_ = *dir_ / "root";
};

// The entries of `a` that are not in `b`. Both are sorted.
static std::vector<std::string> difference(const std::vector<std::string>& a, const std::vector<std::string>& b)
{
  std::vector<std::string> only;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(only));
  return only;
}

TEST_F(debian_package_in_a_clean_root, is_installed_run_and_purged_down_to_what_the_operator_has_written)
{
  make_root();
  ASSERT_FALSE(HasFailure());
  make_systemd_directories();
  const std::vector<std::string> before = files();
  fs::copy_file(deb_, root_ + "/starter.deb");
  ASSERT_THAT(before, Not(Contains("./usr/sbin/starter")));

  (void)in_root("apt-get -q -y install --no-install-recommends /starter.deb");
  fs::remove(root_ + "/starter.deb");
  ASSERT_THAT(files(), Contains("./usr/sbin/starter"));
  fs::create_directories(root_ + "/etc/starter/one.d");
  std::ofstream(root_ + "/etc/starter/one.d/none.conf") << "# nothing\n";
  ASSERT_NO_FATAL_FAILURE(run_program());
  leave_traces();

  (void)in_root("apt-get -q -y remove --autoremove starter");
  for (const char* const file : {"./etc/starter/README", WANTED_LINK, STATE_DIR})
    EXPECT_THAT(files(), Contains(file));

  (void)in_root("apt-get -q -y purge starter");
  const std::vector<std::string> after = files();
  EXPECT_THAT(difference(after, before),
              ElementsAre("./etc/starter", "./etc/starter/one.d", "./etc/starter/one.d/none.conf"));
  EXPECT_THAT(difference(before, after), IsEmpty());
}
