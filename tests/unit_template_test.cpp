// The tests let systemd judge the installed unit template, and run instances of it under a real systemd.

#include "tests/support/command.h"
#include "tests/support/fake_control.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/systemd_fixture.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>

#include <sys/stat.h>

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

static std::string with_replaced(std::string text, const std::string& old, const std::string& replacement)
{
  for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += replacement.size())
    text.replace(at, old.size(), replacement);
  return text;
}

// The template as it is installed, with the options `options` of the installation.
static std::string installed_template(const std::string& options = "")
{
  const Temp_Dir dir;
  (void)output_of("DESTDIR=" + dir.path() + " " TESTS_CMAKE " --install " TESTS_UNIT_BUILD_DIR " " + options);
  return read_file(without_newline(output_of("find " + dir.path() + " -name starter@.service")));
}

// The template with the directories `sbin`, which has the notification library too, and `config` in place of the
// installed ones.
static std::string template_with(const std::string& sbin, const std::string& config)
{
  std::string text = installed_template();
  EXPECT_THAT(text, HasSubstr("=" TESTS_INSTALLED_NOTIFY_LIBRARY "\n"));
  text = with_replaced(text, TESTS_INSTALLED_NOTIFY_LIBRARY, sbin + "/libstarter-notify.so");
  return with_replaced(with_replaced(text, TESTS_SBIN_DIR "/", sbin + '/'), TESTS_CONFIG_DIR, config);
}

// ---- What systemd says of the file

class unit_template_analysis : public testing::Test
{
protected:
  void SetUp() override
  {
    NEEDS(Systemd_Machine::is_installed(), "systemd");

    for (const char* const program :
         {"starter", "starter-check", "starterctl"}) // systemd only looks whether it may run them
      fs::create_symlink(starter_executable(), dir_ / program);
    dir_.write("starter@one.service", template_with(dir_.path(), "/etc/starter"));
  }

  // The output of systemd-analyze with `arguments` for an instance of the template.
  std::string analyze(const std::string& arguments)
  {
    const Ended result =
        run("cd " + dir_.path() + " && systemd-analyze " + arguments + ' ' + dir_ / "starter@one.service");
    return result.status == 0 ? result.output : result.output + "status " + std::to_string(result.status) + '\n';
  }

  const Temp_Dir dir_;
};

TEST_F(unit_template_analysis, is_accepted_by_systemd)
{
  EXPECT_EQ("", analyze("verify --man=no")); // the pages may not be installed here
}

TEST_F(unit_template_analysis, is_exposed_by_1_point_5_at_most)
{
  const std::string output = analyze("security --offline=true --threshold=15 --no-pager");
  EXPECT_EQ(std::string::npos, output.find("\nstatus ")) << output;
  EXPECT_NE(std::string::npos, output.find("Overall exposure level for starter@one.service: ")) << output;
}

TEST(unit_template_text, gives_a_reason_for_every_setting)
{
  std::istringstream lines(installed_template());
  bool has_reason = false; // a comment stands above without a blank line in between
  unsigned settings = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '[')
      has_reason = false;
    else if (line[0] == '#')
      has_reason = true;
    else {
      EXPECT_TRUE(has_reason) << line;
      ++settings;
    }
  }
  EXPECT_LT(20u, settings);
}

// The prefix may be chosen at the installation. `/etc` belongs to /usr, and `/etc/opt` to what is in /opt.
TEST(unit_template_text, names_the_paths_of_the_prefix_that_it_is_installed_to)
{
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"/usr", "/usr/sbin/", "/etc/starter/"},
      {"/usr/local", "/usr/local/sbin/", "/usr/local/etc/starter/"},
      {"/opt/host", "/opt/host/sbin/", "/etc/opt/host/starter/"},
      {"/srv/host", "/srv/host/sbin/", "/srv/host/etc/starter/"}};

  for (const auto& [prefix, sbin, config] : cases) {
    SCOPED_TRACE(prefix);
    const std::string text = installed_template("--prefix " + std::string(prefix));

    for (const std::string& line :
         {"Environment=LIBSYSTEMD_FILENAME=" + std::string(prefix) + "/" TESTS_LIB_DIR "/starter/libstarter-notify.so",
          "AssertPathIsDirectory=" + std::string(config) + "%i.d", "EnvironmentFile=-" + std::string(config) + "%i.env",
          "ExecStartPre=-" + std::string(sbin) + "starter-check --save-files",
          "ExecStart=" + std::string(sbin) + "starter --reactor ${STARTER_REACTOR} --threads ${STARTER_THREADS} -f " +
              config + "%i.d",
          "ExecReload=" + std::string(sbin) + "starter-check --allow-warnings",
          "ExecReload=" + std::string(sbin) +
              "starterctl -s %t/starter/%i/control.socket reload --force --or-signal $MAINPID"})
      EXPECT_THAT(text, HasSubstr('\n' + line));
  }
}

// ---- Instances under systemd

class unit_template : public Systemd_Fixture
{
protected:
  unit_template() : Systemd_Fixture("starter@staller.service") {}

  // Boots a machine in which the program, a service library and the configuration are below /run/test, because no
  // hardening hides this directory. `settings` are lines of the section [Service] in a drop-in.
  void boot(const std::string& settings = "")
  {
    const Temp_Dir& dir = machine_.dir();
    fs::create_directories(dir / "sbin");
    fs::copy_file(starter_executable(), dir / "sbin/starter");
    fs::copy_file(TESTS_NOTIFY_LIBRARY, dir / "sbin/libstarter-notify.so");
    fs::copy_file(service_library("staller"), dir / "libstaller.so");
    dir.write("etc/staller.d/staller.conf",
              with_replaced(with_replaced(staller_directive(), service_library("staller"), "/run/test/libstaller.so"),
                            dir.path(), "/run/test"));
    fs::copy_file(TESTS_CHECKER, dir / "sbin/checker");
    fs::copy_file(TESTS_STARTERCTL, dir / "sbin/starterctl");
    dir.write("sbin/starter-check", "#!/bin/sh\necho \"checked: $*.\" >&2\n"
                                    "/run/test/sbin/checker \"$@\" >&2 || exit\nexit $(cat /run/test/findings)\n");
    has_findings(false);
    dir.write("etc/other.d/none.conf", "# This component loads nothing.\n");
    open_to_all(dir / "etc");
    open_to_all(dir / "sbin");

    machine_.add_unit("starter@.service", template_with("/run/test/sbin", "/run/test/etc"));
    machine_.add_unit("starter@.service.d/test.conf",
                      "[Service]\n" + test_settings() + without_leak_checker() + settings);
    for (const char* const target : {"sysinit.target", "basic.target", "shutdown.target", "network.target"})
      machine_.add_unit(target, "[Unit]\nDefaultDependencies=no\n");
    ASSERT_TRUE(machine_.boot());

    // systemd writes to these directories for the hardening and the directories of the unit. Elsewhere the machine is
    // read-only. The directory of the test stays where it is.
    const std::string path = dir.path();
    ASSERT_TRUE(machine_.succeeds("mkdir /run/test && mount --bind " + path +
                                  " /run/test && "
                                  "mount -t tmpfs -o mode=1777 tmpfs /var/tmp && mount -t tmpfs tmpfs /var/lib && "
                                  "mount -t tmpfs -o mode=1777 tmpfs /tmp && mkdir -p " +
                                  path +
                                  " && "
                                  "mount --bind /run/test " +
                                  path));
  }

  // Decides whether the checker of this machine reports a finding from now on that the real checker does not.
  void has_findings(bool has) const { machine_.dir().write("findings", has ? "1" : "0"); }

  void start()
  {
    ASSERT_TRUE(machine_.succeeds("systemctl start starter@staller.service"));
    pid_ = show("MainPID");
  }

  // Has log() show what the commands of the unit write to standard output too.
  std::string log_of_output() const { return "StandardOutput=append:" + machine_.dir() / "log" + '\n'; }

  // A field of the main process's status, such as "Uid".
  std::string field(const std::string& name) const
  {
    return machine_.run("sed -n 's/^" + name + ":[^0-9a-f]*//p' /proc/" + pid_ + "/status");
  }

  // The client library in the main process, whether the program's own or systemd's.
  std::string notification_library() const
  {
    return machine_.run("sed -n 's,^[^/]*\\(/.*/lib\\(starter-notify\\|systemd\\).*\\),\\1,p' /proc/" + pid_ +
                        "/maps | uniq");
  }

  std::string pid_;

private:
  // The leak checker needs system calls that the unit refuses.
  static std::string without_leak_checker()
  {
    const char* const options = std::getenv("ASAN_OPTIONS");
    return std::string("Environment=ASAN_OPTIONS=") + (options ? options : "") + ":detect_leaks=0\n";
  }

  static void open_to_all(const fs::path& dir)
  {
    fs::permissions(dir, fs::perms(0755));
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(dir))
      fs::permissions(entry, fs::perms(0755));
  }
};

static const char CHECKED_AT_START[] = "checked: --save-files /run/starter/staller/files "
                                       "--reactor dev_poll --threads 4 -f /run/test/etc/staller.d.\n";
static const char CHECKED_AT_RELOAD[] = "checked: --allow-warnings --compare-files /run/starter/staller/files "
                                        "--reactor dev_poll --threads 4 -f /run/test/etc/staller.d.\n";
static const char FED_OFTEN[] = "WatchdogSec=5\nEnvironment=SD_NOTIFY_INTERVAL=1\n";

TEST_F(unit_template, starts_a_component_with_the_pool_and_the_name_that_the_template_sets)
{
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_TRUE(wait_for_record("Created 'dev_poll' reactor with 4 threads\n")) << log();
  EXPECT_TRUE(wait_for_record("The staller is there.\n"));
  EXPECT_TRUE(wait_for_record("<6>Notify systemd every 10000 ms.\n"));
  EXPECT_TRUE(wait_for_record("-staller "));
  EXPECT_TRUE(wait_for_record("nofile=4096, "));
  EXPECT_TRUE(wait_until([&] { return threads() == "5"; })) << threads();
  EXPECT_EQ(0u, log().find(CHECKED_AT_START)) << log();
  EXPECT_NE(std::string::npos, show("ExecStartPre").find("status=0")) << show("ExecStartPre");
  EXPECT_EQ(std::string::npos, log().find("Failed")) << log();
  EXPECT_EQ("/run/test/sbin/libstarter-notify.so", notification_library());
}

TEST_F(unit_template, takes_the_reactor_threads_and_arguments_from_an_environment_file)
{
  machine_.dir().write("etc/staller.env",
                       "STARTER_REACTOR=select\nSTARTER_THREADS=2\nSTARTER_ARGS=-d\nMALLOC_ARENA_MAX=2\n");
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_TRUE(wait_for_record("Created 'select' reactor with 2 threads\n"));
  EXPECT_EQ("-d", machine_.run("tr '\\0' '\\n' </proc/" + pid_ + "/cmdline | grep -x -- -d"));
  EXPECT_EQ("MALLOC_ARENA_MAX=2", machine_.run("tr '\\0' '\\n' </proc/" + pid_ + "/environ | grep MALLOC_"));
}

TEST_F(unit_template, uses_the_library_of_systemd_with_one_line_in_the_environment_file)
{
  machine_.dir().write("etc/staller.env", "LIBSYSTEMD_FILENAME=\n");
  boot(FED_OFTEN);
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_THAT(notification_library(), HasSubstr("/libsystemd.so.0"));
  EXPECT_TRUE(wait_for_keep_alives(2));
}

TEST_F(unit_template, runs_a_component_hardened_and_as_an_account_of_its_own)
{
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  const unsigned long uid = std::stoul(field("Uid"));
  EXPECT_LE(61184ul, uid) << "of the accounts that systemd makes up";
  EXPECT_GE(65519ul, uid);
  EXPECT_EQ(field("Uid"), field("Gid"));
  EXPECT_EQ("0000000000000000", field("CapEff"));
  EXPECT_EQ("0000000000000000", field("CapBnd"));
  EXPECT_EQ("1", field("NoNewPrivs"));
  EXPECT_EQ("2", field("Seccomp")) << "calls are filtered";

  const std::string in_its_mounts = "nsenter -t " + pid_ + " -m ";
  EXPECT_EQ("ro", machine_.run(in_its_mounts + "findmnt -no OPTIONS -T /usr | cut -d, -f1"));
  EXPECT_EQ("", machine_.run(in_its_mounts + "ls -A /tmp"));
  EXPECT_EQ("", machine_.run(in_its_mounts + "find /root /home -mindepth 1"));
  EXPECT_EQ("", machine_.run(in_its_mounts + "ls /dev | grep -x 'kmsg\\|mem\\|sd.*\\|loop.*'"));
  EXPECT_NE(machine_.run("readlink /proc/1/ns/user"), machine_.run("readlink /proc/" + pid_ + "/ns/user"));
  EXPECT_EQ("private/starter/staller", machine_.run("cd /var/lib && readlink -f starter/staller | sed s,/var/lib/,,"));
  EXPECT_EQ("700 " + field("Uid").substr(0, 5), machine_.run("stat -c '%a %u' /var/lib/private/starter/staller"));
}

// The test tries what the account of one component may do to another one, without the hardening that hides processes
// and files.
TEST_F(unit_template, keeps_components_from_one_another)
{
  NEEDS(has_tool("strace"), "strace");
  boot();
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(machine_.succeeds("systemctl start starter@other.service"));
  const std::string other = machine_.run("systemctl show --value -p MainPID starter@other.service");
  const std::string uid = "$(stat -c %u /proc/" + pid_ + ")";
  const std::string other_uid = "$(stat -c %u /proc/" + other + ")";
  const auto as = [](const std::string& account, const std::string& pid, const std::string& command) {
    return "nsenter -t " + pid + " -U -S " + account + " -G " + account + ' ' + command + " 2>&1";
  };

  EXPECT_EQ("starter-staller", show("User"));
  EXPECT_NE(machine_.run("echo " + uid), machine_.run("echo " + other_uid));

  const std::string signal = "kill -0 " + pid_;
  EXPECT_EQ("", machine_.run(as(uid, pid_, signal)));
  EXPECT_THAT(machine_.run(as(other_uid, other, signal)), HasSubstr("Operation not permitted"));

  const std::string trace = "strace -o /dev/null -p " + pid_;
  EXPECT_THAT(machine_.run(as(other_uid, other, trace)), HasSubstr("Operation not permitted"));

  for (const char* const dir : {"/run/starter/staller", "/var/lib/private/starter/staller"}) {
    const std::string file = std::string(dir) + "/secret";
    ASSERT_TRUE(machine_.succeeds("echo text >" + file)) << file;
    ASSERT_TRUE(machine_.succeeds(std::string("chown ").append(uid).append(" ").append(file))) << file;
    EXPECT_THAT(machine_.run(as(other_uid, other, "cat " + file)), HasSubstr("Permission denied"));
  }
  EXPECT_EQ("text", machine_.run(as(uid, pid_, "cat /run/starter/staller/secret")));
}

TEST_F(unit_template, takes_a_name_of_23_characters_and_no_longer_one)
{
  const std::string longest(23, 'n');
  machine_.dir().write("etc/" + longest + ".d/none.conf", "# nothing\n");
  machine_.dir().write("etc/" + longest + "n.d/none.conf", "# nothing\n");
  boot();

  EXPECT_TRUE(machine_.succeeds("systemctl start starter@" + longest + ".service"));
  EXPECT_FALSE(machine_.succeeds("systemctl start starter@" + longest + "n.service 2>/dev/null"));

  const auto console_has = [&](const std::string& text) {
    return wait_until([&] { return machine_.console().find(text) != std::string::npos; });
  };
  EXPECT_TRUE(console_has("user/group name 'starter-" + longest + "n', which does not match strict"));
  EXPECT_TRUE(console_has("starter@" + longest + "n.service: Failed to run 'start-pre' task"));
}

TEST_F(unit_template, refuses_a_component_that_has_no_configuration)
{
  boot();

  const std::string answer = machine_.run("systemctl start starter@staler.service 2>&1 || echo refused");

  EXPECT_EQ("Assertion failed on job for starter@staler.service.\nrefused", answer);
  EXPECT_EQ("inactive", machine_.run("systemctl is-active starter@staler.service"));
  EXPECT_EQ("no", machine_.run("systemctl show --value -p AssertResult starter@staler.service"));
  EXPECT_EQ("", log()) << "nothing has run";
}

TEST_F(unit_template, keeps_a_component_up_while_keep_alives_come)
{
  boot(FED_OFTEN);
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_TRUE(wait_for_keep_alives(8));

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ("0", show("NRestarts"));
  EXPECT_EQ(pid_, show("MainPID"));
}

TEST_F(unit_template, reloads_a_component)
{
  boot(FED_OFTEN + log_of_output());
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(wait_until([&] { return threads() == "5"; })) << threads();

  EXPECT_TRUE(machine_.succeeds("systemctl reload starter@staller.service"));

  EXPECT_TRUE(wait_for_record("Signal 1 (Hangup) caught, and reconfiguring ... \n"));
  EXPECT_TRUE(wait_for_record("The staller is gone.\nThe staller is there.\n"));
  EXPECT_TRUE(wait_for_keep_alives(2));
  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ(pid_, show("MainPID"));
  EXPECT_THAT(log(), HasSubstr("Nobody listens at the control socket: the process " + pid_ + " has got a hang-up.\n"));
}

// A server of the test listens at the socket of the component.
TEST_F(unit_template, reloads_a_component_by_its_control_socket)
{
  boot(log_of_output());
  ASSERT_NO_FATAL_FAILURE(start());
  const std::string socket = machine_.dir() / "control.socket";
  Fake_Control control(socket);
  ASSERT_EQ(0, chmod(socket.c_str(), 0777));
  ASSERT_TRUE(machine_.succeeds("ln -s /run/test/control.socket /run/starter/staller/control.socket"));
  const std::string reload = "systemctl reload starter@staller.service 2>/dev/null";

  control.answer(R"({"ok":true,"ended":["Staller"],"started":["Staller"],"failed":[],"missing":[]})");
  EXPECT_TRUE(machine_.succeeds(reload)) << log();
  EXPECT_THAT(log(), HasSubstr("Ended:    Staller\nStarted:  Staller\n"));
  EXPECT_THAT(control.requests(), testing::ElementsAre(R"({"command":"reload"})"));

  control.answer(R"({"ok":false,"error":"It is missing.","ended":["Staller"],"missing":["Staller"]})");
  EXPECT_FALSE(machine_.succeeds(reload));
  EXPECT_THAT(log(), HasSubstr("Missing:  Staller\n"));
  EXPECT_THAT(log(), HasSubstr("starterctl: It is missing.\n"));

  has_findings(true);
  EXPECT_FALSE(machine_.succeeds(reload));
  EXPECT_EQ(2u, control.requests().size()) << "the checker has refused";
  EXPECT_THAT(log(), Not(HasSubstr("Signal 1 ")));
  EXPECT_EQ("active", show("ActiveState"));
}

// The checker runs as the account of the component, from whose file system the operator's is hidden in part.
TEST_F(unit_template, obeys_the_operator_if_the_component_loads_the_companion)
{
  const Temp_Dir& dir = machine_.dir();
  dir.write("etc/staller.d/00-control.conf",
            "dynamic Control Service_Object * /run/test/libstarter_control.so:_make_Control() \"\"\n");
  fs::copy_file(TESTS_CONTROL_LIBRARY, dir / "libstarter_control.so");
  fs::create_directory(dir / "bin");
  fs::copy_file(TESTS_STARTERCTL, dir / "bin/starterctl");
  fs::copy_file(TESTS_CHECKER, dir / "bin/starter-check");
  boot(log_of_output());
  fs::permissions(dir / "bin", fs::perms(0755));
  ASSERT_NO_FATAL_FAILURE(start());
  const std::string starterctl = "/run/test/bin/starterctl -c staller ";
  const std::string verdict = "Ended:    Control, Staller\nStarted:  Control, Staller";

  EXPECT_EQ("staller", machine_.run("/run/test/bin/starterctl list"));
  EXPECT_EQ("OK: all services of the configuration are active", machine_.run(starterctl + "health"));
  EXPECT_EQ(verdict, machine_.run(starterctl + "reload 2>&1"));
  EXPECT_TRUE(machine_.succeeds("systemctl reload starter@staller.service")) << log();
  EXPECT_THAT(log(), HasSubstr(verdict + '\n'));

  const std::string conf = dir / "etc/staller.d/staller.conf";
  fs::permissions(conf, fs::perms(0600)); // which root could read
  EXPECT_THAT(machine_.run(starterctl + "reload 2>&1"), HasSubstr("staller.conf: unreadable-file: "));
  EXPECT_FALSE(machine_.succeeds("systemctl reload starter@staller.service"));
  fs::permissions(conf, fs::perms(0644));

  const std::string good = read_file(conf);
  std::ofstream(conf) << with_replaced(good, "/fifo", "/missing");
  EXPECT_FALSE(machine_.succeeds("systemctl reload starter@staller.service"));
  EXPECT_THAT(log(), HasSubstr("Ended:    Control, Staller\nStarted:  Control\nFailed:   Staller ("));
  EXPECT_THAT(log(), HasSubstr("\nMissing:  Staller\nstarterctl: Not every service "));
  EXPECT_EQ("CRITICAL: missing: Staller", machine_.run(starterctl + "health"));

  std::ofstream(conf) << good;
  EXPECT_TRUE(machine_.succeeds("systemctl reload starter@staller.service")) << log();
  EXPECT_EQ("OK: all services of the configuration are active", machine_.run(starterctl + "health"));
  EXPECT_EQ(pid_, show("MainPID"));
}

// ---- The package's scripts, with components that run

TEST_F(unit_template, goes_on_when_the_package_is_upgraded)
{
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  for (const char* const step : {"prerm upgrade 9", "postrm upgrade 9", "postinst configure 0"})
    EXPECT_TRUE(machine_.succeeds(std::string("sh " TESTS_MAINTAINER_SCRIPTS "/") + step)) << step;

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ(pid_, show("MainPID"));
}

TEST_F(unit_template, is_stopped_in_order_before_the_package_is_removed)
{
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  // The script must not ask the policy of this machine, which may forbid it to stop services.
  EXPECT_TRUE(machine_.succeeds("DPKG_ROOT=/nowhere sh " TESTS_MAINTAINER_SCRIPTS "/prerm remove"));

  EXPECT_EQ("inactive", show("ActiveState"));
  EXPECT_TRUE(wait_for_record("Signal 15 (Terminated) caught in [starter].\nThe staller is gone.\n"));
  EXPECT_TRUE(machine_.succeeds("sh " TESTS_MAINTAINER_SCRIPTS "/postrm remove"));
}

TEST_F(unit_template, starts_a_component_in_spite_of_a_checker_that_fails)
{
  boot();
  has_findings(true);
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ(0u, log().find(CHECKED_AT_START)) << "before the program starts, with its arguments";
  EXPECT_NE(std::string::npos, show("ExecStartPre").find("status=1")) << show("ExecStartPre");
  EXPECT_TRUE(wait_for_record("The staller is there.\n"));
}

TEST_F(unit_template, leaves_the_findings_to_the_reload)
{
  machine_.dir().write("etc/staller.d/bad.conf", "foo\n");
  boot();
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(wait_for_record("The staller is there.\n"));
  EXPECT_NE(std::string::npos, show("ExecStartPre").find("status=0")) << show("ExecStartPre");
  EXPECT_EQ(std::string::npos, log().find("syntax-error")) << log();

  EXPECT_FALSE(machine_.succeeds("systemctl reload starter@staller.service"));

  EXPECT_THAT(log(), HasSubstr("bad.conf:1: syntax-error: a directive expected, not 'foo'\n"));
  EXPECT_EQ("active", show("ActiveState"));
}

TEST_F(unit_template, does_not_reload_a_component_when_the_checker_finds_something)
{
  boot(FED_OFTEN);
  ASSERT_NO_FATAL_FAILURE(start());
  has_findings(true);

  EXPECT_FALSE(machine_.succeeds("systemctl reload starter@staller.service 2>/dev/null"));

  EXPECT_TRUE(wait_for_keep_alives(2));
  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_EQ(pid_, show("MainPID"));
  EXPECT_EQ(std::string::npos, log().find("Signal 1 "));
  EXPECT_THAT(log(), HasSubstr(CHECKED_AT_RELOAD));
}

TEST_F(unit_template, does_not_reload_a_component_when_a_file_is_renamed)
{
  boot(FED_OFTEN);
  ASSERT_NO_FATAL_FAILURE(start());
  const std::string dir = machine_.dir() / "etc/staller.d/";
  const std::string reload = "systemctl reload starter@staller.service 2>/dev/null";

  fs::rename(dir + "staller.conf", dir + "other.conf");
  EXPECT_FALSE(machine_.succeeds(reload));
  EXPECT_THAT(log(), HasSubstr("staller.d/staller.conf: changed-files: is one of the files of the start "));
  EXPECT_THAT(log(), HasSubstr("staller.d/other.conf: changed-files: is not one of the files of the start: "));

  EXPECT_TRUE(wait_for_keep_alives(2));
  EXPECT_THAT(log(), Not(HasSubstr("Signal 1 ")));
  EXPECT_EQ("active", show("ActiveState"));

  fs::rename(dir + "other.conf", dir + "staller.conf");
  EXPECT_TRUE(machine_.succeeds(reload));
  EXPECT_TRUE(wait_for_record("The staller is gone.\nThe staller is there.\n"));
}

TEST_F(unit_template, reloads_a_component_whose_service_is_given_twice)
{
  machine_.dir().write("etc/staller.d/twice.conf", "");
  boot();
  fs::copy_file(machine_.dir() / "etc/staller.d/staller.conf", machine_.dir() / "etc/staller.d/twice.conf",
                fs::copy_options::overwrite_existing);
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_TRUE(machine_.succeeds("systemctl reload starter@staller.service"));

  EXPECT_TRUE(wait_for_record("Signal 1 (Hangup) caught, and reconfiguring ... \n"));
  EXPECT_THAT(log(), HasSubstr("twice.conf:1: warning: duplicate-service: "));
}

// There is no pool, because the other threads of a pool would go on while one event handler stalls.
TEST_F(unit_template, restarts_a_component_whose_keep_alives_stop)
{
  boot("WatchdogSec=5\nEnvironment=SD_NOTIFY_INTERVAL=1\nEnvironment=STARTER_THREADS=1\n");
  ASSERT_NO_FATAL_FAILURE(start());

  tell_staller('s');

  ASSERT_TRUE(wait_for("NRestarts", "1"));
  EXPECT_TRUE(wait_for("ActiveState", "active"));
  EXPECT_NE(pid_, show("MainPID"));
  EXPECT_NE(std::string::npos, machine_.console().find("Watchdog timeout"));
  EXPECT_NE(std::string::npos, log().find("Signal 6 (Aborted) caught"));
}

TEST_F(unit_template, restarts_a_component_after_a_fault_that_ended_with_status_0)
{
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_TRUE(machine_.succeeds("kill -SEGV " + pid_));

  ASSERT_TRUE(wait_for("NRestarts", "1"));
  EXPECT_TRUE(wait_for("ActiveState", "active"));
  EXPECT_NE(std::string::npos, log().find("Signal 11 (Segmentation fault) caught"));
}

TEST_F(unit_template, stops_a_component_in_order)
{
  boot();
  ASSERT_NO_FATAL_FAILURE(start());

  EXPECT_TRUE(machine_.succeeds("systemctl stop starter@staller.service"));

  EXPECT_EQ("inactive", show("ActiveState"));
  EXPECT_EQ("success", show("Result"));
  EXPECT_EQ("1", show("ExecMainCode")) << "CLD_EXITED";
  EXPECT_EQ("0", show("ExecMainStatus"));
  EXPECT_NE(std::string::npos, log().find("Signal 15 (Terminated) caught in [starter].\nThe staller is gone.\n"));
}
