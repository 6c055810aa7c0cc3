// The tests build the Debian packages, check them, install them into clean Debian roots, use them there and remove
// them.

#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/debian_root.h"
#include "tests/support/guide.h"
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
using testing::UnorderedElementsAre;

// ---- The package as a file

class debian_package : public testing::Test
{
protected:
  static void SetUpTestSuite()
  {
    dir_ = std::make_unique<Temp_Dir>();
    packages_ = std::make_unique<Debian_Packages>();
    for (const char* const name : {"starter", "libscrt-dev"})
      (void)output_of("dpkg-deb --extract " + packages_->file(name) + ' ' + *dir_ / name);
    deb_ = packages_->file("starter");
    dev_deb_ = packages_->file("libscrt-dev");
  }

  static void TearDownTestSuite()
  {
    packages_.reset();
    dir_.reset();
  }

  static std::unique_ptr<Temp_Dir> dir_; // each package is extracted to a folder of its name here
  static std::unique_ptr<Debian_Packages> packages_;
  static std::string deb_;
  static std::string dev_deb_;
};

std::unique_ptr<Temp_Dir> debian_package::dir_;
std::unique_ptr<Debian_Packages> debian_package::packages_;
std::string debian_package::deb_;
std::string debian_package::dev_deb_;

static std::string field(const std::string& deb, const std::string& name)
{
  return output_of("dpkg-deb --field " + deb + ' ' + name);
}

TEST_F(debian_package, is_found_without_fault_by_lintian)
{
  NEEDS(has_tool("lintian"), "lintian");
  EXPECT_EQ("", output_of("lintian --allow-root --fail-on error,warning " + deb_ + ' ' + dev_deb_));
}

TEST_F(debian_package, is_made_with_the_others)
{
  EXPECT_THAT(packages_->names(),
              UnorderedElementsAre("libscrt-dev", "libstarter-metrics-dev", "libstarter-metrics0", "starter",
                                   "starter-companions", "starter-pacemaker", "starter-trace"));
}

TEST_F(debian_package, has_what_an_operator_needs_and_nothing_of_the_support_library)
{
  const std::vector<std::string> files = lines_of(output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar t"));

  for (const char* const file : {"./usr/sbin/starter",
                                 "./usr/sbin/starter-check",
                                 "./usr/sbin/starterctl",
                                 "./usr/sbin/starter-rolling",
                                 "./usr/share/doc/starter/cluster/haproxy.cfg",
                                 "./usr/share/man/man8/starter-rolling.8.gz",
                                 "./usr/share/man/man8/starterctl.8.gz",
                                 "./usr/share/bash-completion/completions/starterctl",
                                 "./usr/share/zsh/vendor-completions/_starterctl",
                                 "./usr/share/man/man8/starter-check.8.gz",
                                 "./usr/share/bash-completion/completions/starter-check",
                                 "./usr/share/doc/starter/doc/operating.md",
                                 "./usr/share/doc/starter/examples/timer/timer.cpp",
                                 "./usr/share/doc/starter/examples/own_threads.h",
                                 "./usr/lib/systemd/system/starter@.service",
                                 "./usr/share/man/man8/starter.8.gz",
                                 "./usr/share/man/man5/starter.conf.5.gz",
                                 "./usr/share/bash-completion/completions/starter",
                                 "./usr/share/zsh/vendor-completions/_starter",
                                 "./usr/share/doc/starter/copyright",
                                 "./usr/share/doc/starter/changelog.gz",
                                 "./usr/share/doc/starter/NEWS.md",
                                 "./usr/share/doc/starter/examples/echo/conf.d/echo.conf"})
    EXPECT_THAT(files, Contains(file));
  for (const std::string& file : files) {
    EXPECT_EQ(std::string::npos, file.find("scrt")) << file;
    EXPECT_EQ(std::string::npos, file.find("/include/")) << file;
    if (file.rfind("./etc/", 0) == 0) {
      EXPECT_THAT(file, AnyOf("./etc/", "./etc/starter/", "./etc/starter/README"));
    }
  }
}

TEST_F(debian_package, has_what_an_author_needs_and_nothing_of_the_program)
{
  const std::vector<std::string> files = lines_of(output_of("dpkg-deb --fsys-tarfile " + dev_deb_ + " | tar t"));

  const std::string lib = "./" + without_newline(output_of("cd " + *dir_ / "libscrt-dev" + " && ls -d usr/lib/*"));
  for (const char* const file : {"/libscrt.a", "/cmake/scrt/scrt-config.cmake", "/pkgconfig/scrt.pc"})
    EXPECT_THAT(files, Contains(lib + file));
  const std::string doc = "./usr/share/doc/libscrt-dev";
  for (const char* const file : {"/copyright", "/changelog.gz", "/NEWS.md", "/examples/CMakeLists.txt"})
    EXPECT_THAT(files, Contains(doc + file));
  for (const auto& entry : fs::directory_iterator(TESTS_SOURCE_DIR "/scrt"))
    if (entry.path().extension() == ".h") {
      EXPECT_THAT(files, Contains("./usr/include/scrt/" + entry.path().filename().string()));
    }
  for (const std::string& file : files)
    EXPECT_EQ(std::string::npos, file.find("bin/")) << file;
}

TEST_F(debian_package, explains_the_directory_of_the_configuration_in_a_file_that_the_operator_may_change)
{
  EXPECT_EQ("/etc/starter/README\n", output_of("dpkg-deb --info " + deb_ + " conffiles"));
  EXPECT_EQ("drwxr-xr-x", output_of("dpkg-deb --fsys-tarfile " + deb_ + " | tar tv ./etc/starter/").substr(0, 10));

  const std::string readme = read_file(*dir_ / "starter/etc/starter/README");
  EXPECT_NE(std::string::npos, readme.find("systemctl enable --now starter@NAME")) << readme;
}

TEST_F(debian_package, can_be_read_by_everybody_and_changed_by_root_only)
{
  for (const std::string& deb : {deb_, dev_deb_})
    for (const std::string& line : lines_of(output_of("dpkg-deb --fsys-tarfile " + deb + " | tar tv")))
      EXPECT_THAT(line.substr(0, 20), AnyOf("drwxr-xr-x root/root", "-rwxr-xr-x root/root", "-rw-r--r-- root/root"))
          << line;
}

TEST_F(debian_package, has_the_notification_library_where_the_unit_looks_for_it)
{
  const std::string files = "dpkg-deb --fsys-tarfile " + deb_ + " | tar ";
  const std::string library = output_of(files + "xO ./usr/lib/systemd/system/starter@.service"
                                                " | sed -n s/^Environment=LIBSYSTEMD_FILENAME=//p");
  ASSERT_EQ('/', library[0]) << library;
  EXPECT_THAT(lines_of(output_of(files + "t")), Contains("." + without_newline(library)));
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
  for (const auto& entry : fs::recursive_directory_iterator(dir_->path())) {
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
  for (const char* const program : {"starter", "starter-check", "starterctl"})
    EXPECT_EQ("", output_of("nm " + *dir_ / "starter/usr/sbin/" + program + " 2>/dev/null")) << program;
  EXPECT_EQ("", output_of("! grep -rl -e " TESTS_SOURCE_DIR " -e " + packages_->build_dir() + ' ' + dir_->path()));
}

// The preset that makes packages only builds the program as the packages have it, and nothing that they have not.
TEST_F(debian_package, is_made_without_tests_and_benchmarks)
{
  const std::string build = *dir_ / "build";
  (void)output_of("cd " TESTS_SOURCE_DIR " && " TESTS_CMAKE " --preset package -B " + build);

  EXPECT_FALSE(fs::exists(build + "/tests"));
  EXPECT_FALSE(fs::exists(build + "/bench"));
  const std::string settings = read_file(build + "/CMakeCache.txt");
  for (const char* const setting : {"CMAKE_BUILD_TYPE:STRING=RelWithDebInfo\n", "CMAKE_INSTALL_PREFIX:PATH=/usr\n"})
    EXPECT_NE(std::string::npos, settings.find(setting)) << settings;
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

  void make_root(const std::string& include = "")
  {
    root_ = std::make_unique<Debian_Root>(*dir_ / "root", include);
    ASSERT_FALSE(HasFailure());
  }

  void run_program() const
  {
    Start_Options options;
    options.wrapper = {"unshare", "--mount", "sh", "-c",
                       "mount -t proc proc " + root_->path() + "/proc && exec chroot " + root_->path() +
                           " /usr/sbin/starter --reactor tp --threads 2 -f /etc/starter/one.d"};
    options.env["COMPONENT"] = "one";
    Starter_Process starter({}, options);

    ASSERT_TRUE(starter.wait_for_record("-one " TESTS_PROJECT_VERSION)) << starter.log();
    ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
    EXPECT_EQ(1u, starter.count("Created 'tp' reactor with 2 threads\n")) << starter.log();
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();

    // A component that loads nothing may deserve a warning.
    (void)root_->run("/usr/sbin/starter-check --allow-warnings -f /etc/starter/one.d");
  }

  // Makes the directories of systemd, which stay, and a link to a unit that has nothing to do with the package.
  void make_systemd_directories() const
  {
    fs::create_directories(root_->path() + "/etc/systemd/system/multi-user.target.wants");
    fs::create_symlink("/lib/systemd/system/other.service",
                       root_->path() + "/etc/systemd/system/multi-user.target.wants/other.service");
    fs::create_directories(root_->path() + "/var/lib/private");
  }

  // Leaves what an enabled component leaves: a link to the template, and its state behind a link of systemd.
  void leave_traces() const
  {
    fs::create_symlink("/lib/systemd/system/starter@.service", fs::path(root_->path()) / WANTED_LINK);
    fs::create_directories(fs::path(root_->path()) / STATE_DIR);
    fs::create_directories(root_->path() + "/var/lib/starter");
    fs::create_symlink("../private/starter/one", root_->path() + "/var/lib/starter/one");
  }

  static constexpr char WANTED_LINK[] = "./etc/systemd/system/multi-user.target.wants/starter@one.service";
  static constexpr char STATE_DIR[] = "./var/lib/private/starter/one";

  std::unique_ptr<Debian_Root> root_;
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
  ASSERT_NO_FATAL_FAILURE(make_root());
  make_systemd_directories();
  const std::vector<std::string> before = root_->files();
  ASSERT_THAT(before, Not(Contains("./usr/sbin/starter")));

  root_->install({deb_});
  ASSERT_THAT(root_->files(), Contains("./usr/sbin/starter"));
  fs::create_directories(root_->path() + "/etc/starter/one.d");
  std::ofstream(root_->path() + "/etc/starter/one.d/none.conf") << "# nothing\n";
  ASSERT_NO_FATAL_FAILURE(run_program());
  leave_traces();

  (void)root_->run("apt-get -q -y remove --autoremove starter");
  for (const char* const file : {"./etc/starter/README", WANTED_LINK, STATE_DIR})
    EXPECT_THAT(root_->files(), Contains(file));

  (void)root_->run("apt-get -q -y purge starter");
  const std::vector<std::string> after = root_->files();
  EXPECT_THAT(difference(after, before),
              ElementsAre("./etc/starter", "./etc/starter/one.d", "./etc/starter/one.d/none.conf"));
  EXPECT_THAT(difference(before, after), IsEmpty());
}

// ---- The packages of an author

// Runs the examples as their pages say. A page shows a command after a dollar sign, and the lines that it writes.
static std::string script_of_examples(const std::string& pages)
{
  std::string script;
  for (const std::string& line : lines_of(pages))
    if (line.rfind("    $ ", 0) == 0) {
      const std::string command = line.substr(6);
      const bool runs = command.rfind("starter ", 0) == 0; // until somebody ends it
      script += (runs ? "timeout --preserve-status -s INT 1 " : "") + command + '\n';
    }
  return script;
}

// The lines that the pages promise without a client, and before any time has passed: one for each run.
static std::string first_line_after_each_command(const std::string& pages)
{
  std::string expected;
  bool is_next = false;
  for (const std::string& line : lines_of(pages)) {
    if (is_next)
      expected += line.substr(4) + '\n';
    is_next = line.rfind("    $ starter ", 0) == 0;
  }
  return expected;
}

// The root has a compiler and CMake, what the packages depend on, and nothing else of this machine.
TEST_F(debian_package_in_a_clean_root, is_all_that_the_guide_and_the_examples_are_built_with)
{
  ASSERT_NO_FATAL_FAILURE(make_root("g++,cmake,make"));
  root_->install({deb_, dev_deb_});
  const std::string two = "export CMAKE_BUILD_PARALLEL_LEVEL=2\n";

  const std::vector<Block> guide =
      blocks_of(read_file(root_->path() + "/usr/share/doc/starter/doc/writing-a-service.md"));
  EXPECT_EQ(8u, expect_promised_output(
                    guide, "sh", root_->run(two + "mkdir /root/hello\ncd /root/hello\n" + script_of(guide, "sh"))));

  const std::string examples = "/usr/share/doc/libscrt-dev/examples";
  const std::string page = read_file(root_->path() + examples + "/README.md");
  std::string pages = page;
  for (const char* const name : {"active", "echo", "stream", "timer"})
    pages += read_file(root_->path() + examples + '/' + name + "/README.md");
  // The ports of the examples may be in use on this machine.
  const std::string output =
      root_->run(two + "cp -r " + examples + " /root/mine\ncd /root/mine\nsed -i 's/\"-p [0-9]*/\"-p 0/' */conf.d/*\n" +
                 script_of(blocks_of(page), "sh") + script_of_examples(pages));
  EXPECT_EQ(2u, expect_promised_output(blocks_of(page), "sh", output));
  expect_lines(first_line_after_each_command(pages), output);
}
