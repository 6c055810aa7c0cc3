// The tests run the command against a server of their own, which answers what a process would answer, and what no
// process should.

#include "tests/support/command.h"
#include "tests/support/fake_control.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// The end of a run of the command.
struct Told
{
  int status;
  std::string out;
  std::string err;
};

static bool operator==(const Told& a, const Told& b)
{
  return std::tie(a.status, a.out, a.err) == std::tie(b.status, b.out, b.err);
}

static void PrintTo(const Told& told, std::ostream* out)
{
  *out << "status " << told.status << "\n--- out\n" << told.out << "--- err\n" << told.err;
}

// Runs the command with `arguments`, which are words of a shell. The shell command `before` is prepended.
static Told starterctl(const std::string& arguments, const std::string& before = "")
{
  const Temp_Dir streams;
  const std::string path = "PATH=" TESTS_CHECKER_DIR ":\"$PATH\" ";
  const Ended ended = run_for_stdout(before + path + TESTS_STARTERCTL " " + arguments + " 2>" + streams / "err");
  return {ended.status, ended.output, read_file(streams / "err")};
}

class starterctl_process : public testing::Test
{
protected:
  Told tell(const std::string& arguments) const { return starterctl("-s " + socket_ + ' ' + arguments); }

  const Temp_Dir dir_;
  const std::string socket_ = dir_ / "control.socket";
  Fake_Control control_{socket_};
};

static const char SERVICES[] =
    R"("services":[{"name":"Echo","type":"service","state":"active","library":"/usr/lib/libecho.so"},)"
    R"({"name":"Timer","type":"service","state":"missing","library":"timer"},)"
    R"({"name":"Pipe_One","type":"module","state":"suspended","library":""}])";

static const char SERVICE_TABLE[] = "SERVICE   TYPE     STATE      LIBRARY\n"
                                    "Echo      service  active     /usr/lib/libecho.so\n"
                                    "Timer     service  missing    timer\n"
                                    "Pipe_One  module   suspended\n";

// ---- Every command and its answer

TEST_F(starterctl_process, shows_the_status)
{
  control_.answer(R"({"ok":true,"component":"demo","version":"0.1.0","revision":"2d039c944650","pid":4711,)"
                  R"("state":"running","uptime_seconds":7530.25,"reactor":"dev_poll",)"
                  R"("threads":[{"tid":4711,"name":"starter","state":"waiting","turns":12},)"
                  R"({"tid":47120,"name":"starter","state":"working","turns":3456}],)" +
                  std::string(SERVICES) + R"(,"reloads":2,"last_failure":"Failed to listen\n, errno=98"})");

  const Told expected{0,
                      std::string("Component:     demo\n"
                                  "Version:       0.1.0 (rev 2d039c944650)\n"
                                  "Process:       4711\n"
                                  "State:         running\n"
                                  "Uptime:        2 hours 5 minutes\n"
                                  "Reactor:       dev_poll\n"
                                  "Reloads:       2\n"
                                  "Last failure:  Failed to listen\\x0a, errno=98\n"
                                  "\n"
                                  "THREAD  NAME     STATE    TURNS\n"
                                  "  4711  starter  waiting     12\n"
                                  " 47120  starter  working   3456\n"
                                  "\n") +
                          SERVICE_TABLE,
                      ""};
  EXPECT_EQ(expected, tell("status"));
  EXPECT_THAT(control_.requests(), ElementsAre(R"({"command":"status"})"));
}

TEST_F(starterctl_process, shows_a_status_without_a_failure)
{
  control_.answer(R"({"ok":true,"component":"","version":"1","revision":"r","pid":1,"state":"starting",)"
                  R"("uptime_seconds":0,"reactor":"tp","threads":[],"services":[],"reloads":0,"last_failure":""})");

  EXPECT_THAT(tell("status").out, AllOf(HasSubstr("\nUptime:        0 seconds\n"), HasSubstr("\nLast failure:  none\n"),
                                        StartsWith("Component:\nVersion:")));
}

TEST_F(starterctl_process, shows_the_services)
{
  control_.answer("{\"ok\":true," + std::string(SERVICES) + "}");
  EXPECT_EQ((Told{0, SERVICE_TABLE, ""}), tell("services"));
  EXPECT_THAT(control_.requests(), ElementsAre(R"({"command":"services"})"));
}

TEST_F(starterctl_process, tells_the_health_by_a_line_and_the_status_of_a_monitoring_plug_in)
{
  const std::tuple<const char*, int, const char*> cases[] = {
      {R"({"ok":true,"status":0,"text":"OK: all services are active"})", 0, "OK: all services are active\n"},
      {R"({"ok":true,"status":1,"text":"WARNING: a thread\u001b hangs"})", 1, "WARNING: a thread\\x1b hangs\n"},
      {R"({"ok":true,"status":2,"text":"CRITICAL: Echo is missing"})", 2, "CRITICAL: Echo is missing\n"},
      {R"({"ok":true,"status":3,"text":"who knows"})", 3, "who knows\n"},
      {R"({"ok":true,"status":-1,"text":"who knows"})", 3, "who knows\n"},
      {R"({"ok":false,"error":"not for you"})", 3, "UNKNOWN: not for you\n"},
      {R"({"ok":true,"status":"0","text":"x"})", 3,
       "UNKNOWN: the answer of the process is not understood: the member 'status' is missing or is no number\n"},
      {R"({"ok":true,"status":0})", 3,
       "UNKNOWN: the answer of the process is not understood: the member 'text' is missing or is no text\n"},
      {"nonsense", 3, "UNKNOWN: the answer of the process is not understood: it is no JSON\n"}};

  for (const auto& [answer, status, text] : cases) {
    control_.answer(answer);
    EXPECT_EQ((Told{status, text, ""}), tell("health")) << answer;
  }
}

TEST_F(starterctl_process, says_what_has_been_done)
{
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"suspend Echo", R"({"command":"suspend","name":"Echo"})", "The service Echo is suspended.\n"},
      {"resume Echo", R"({"command":"resume","name":"Echo"})", "The service Echo is active again.\n"},
      {"remove Echo", R"({"command":"remove","name":"Echo"})", "The service Echo is removed.\n"},
      {"restart Echo", R"({"command":"restart","name":"Echo"})", "The service Echo is restarted.\n"},
      {"load 'remove Echo'", R"({"command":"load","directive":"remove Echo"})", "The directive is carried out.\n"},
      {"log-level warning", R"({"command":"log-level","priority":"warning"})",
       "Records from the priority warning on are logged until the next start.\n"},
      {"debug on", R"({"command":"debug","on":true})",
       "The debug records of the framework are on until the next start.\n"},
      {"debug off", R"({"command":"debug","on":false})",
       "The debug records of the framework are off until the next start.\n"}};

  control_.answer(R"({"ok":true})");
  for (const auto& [arguments, request, text] : cases) {
    EXPECT_EQ((Told{0, text, ""}), tell(arguments));
    EXPECT_EQ(request, control_.requests().back());
  }

  control_.answer(R"({"ok":false,"error":"there is no service\u0007 'Echo'"})");
  for (const auto& [arguments, request, text] : cases)
    EXPECT_EQ((Told{1, "", "starterctl: there is no service\\x07 'Echo'\n"}), tell(arguments)) << arguments;
}

TEST_F(starterctl_process, shows_the_back_traces)
{
  control_.answer(R"({"ok":true,"threads":[{"tid":4711,"name":"starter","frames":[)"
                  R"({"address":"0x7f01","module":"/lib/libc.so.6","offset":"0x10c","function":"epoll_wait+0x5e"},)"
                  R"({"address":"0x55aa01","module":"/usr/sbin/starter","offset":"0x2000","function":""},)"
                  R"({"address":"0x1","module":"","offset":"","function":""}]},)"
                  R"({"tid":4712,"name":"worker","frames":[]}]})");

  EXPECT_EQ((Told{0,
                  "Thread 4711 (starter):\n"
                  "#0  0x7f01    /lib/libc.so.6+0x10c      epoll_wait+0x5e\n"
                  "#1  0x55aa01  /usr/sbin/starter+0x2000\n"
                  "#2  0x1\n"
                  "\n"
                  "Thread 4712 (worker): no back trace\n",
                  ""}),
            tell("trace"));
}

TEST_F(starterctl_process, says_how_a_reload_went)
{
  const std::tuple<const char*, int, const char*, const char*> cases[] = {
      {R"({"ok":true,"ended":["Echo","Timer"],"started":["Echo","Timer"],"failed":[],"missing":[]})", 0,
       "Ended:    Echo, Timer\nStarted:  Echo, Timer\n", ""},
      {R"({"ok":true,"ended":[],"started":[],"failed":[],"missing":[]})", 0, "", ""},
      {R"({"ok":false,"error":"2 services are not there","ended":["Echo"],"started":["Timer"],)"
       R"("failed":[{"name":"Echo","reason":"init\u001b failed"}],"missing":["Echo","Other"]})",
       1, "Ended:    Echo\nStarted:  Timer\nFailed:   Echo (init\\x1b failed)\nMissing:  Echo, Other\n",
       "starterctl: 2 services are not there\n"},
      {R"({"ok":false,"error":"the process is stopping"})", 1, "", "starterctl: the process is stopping\n"},
      {R"({"ok":true,"started":"Echo"})", 2, "",
       "starterctl: the answer of the process is not understood: the member 'started' is missing or is no list\n"}};

  for (const auto& [answer, status, out, err] : cases) {
    control_.answer(answer);
    EXPECT_EQ((Told{status, out, err}), tell("reload --force")) << answer;
  }
}

// ---- JSON

TEST_F(starterctl_process, repeats_the_answer_as_one_line_of_json)
{
  control_.answer("{\"ok\":true, \"services\":[],\t\"new\":\"\x7f\"}");
  EXPECT_EQ((Told{0, "{\"ok\":true, \"services\":[], \"new\":\"\\u007f\"}\n", ""}), tell("--json services"));

  control_.answer(R"({"ok":false,"error":"no"})");
  EXPECT_EQ((Told{1, "{\"ok\":false,\"error\":\"no\"}\n", ""}), tell("--json remove Echo"));

  control_.answer(R"({"ok":true,"status":"0"})");
  EXPECT_EQ((Told{3, "{\"ok\":true,\"status\":\"0\"}\n", ""}), tell("--json health"));
  control_.answer(R"({"ok":true,"status":2,"text":"x"})");
  EXPECT_EQ((Told{2, "{\"ok\":true,\"status\":2,\"text\":\"x\"}\n", ""}), tell("--json health"));
}

TEST_F(starterctl_process, makes_an_object_of_the_same_form_when_nobody_answers)
{
  control_.answer("nonsense");
  const char problem[] = "{\"error\":\"the answer of the process is not understood: it is no JSON\",\"ok\":false}\n";
  EXPECT_EQ((Told{2, problem, ""}), tell("--json status"));
  EXPECT_EQ((Told{3, problem, ""}), tell("--json health"));
  EXPECT_EQ((Told{2, "{\"error\":\"there is no command 'x'; see --help\",\"ok\":false}\n", ""}), tell("--json x"));
}

// ---- Misuse

TEST_F(starterctl_process, refuses_misuse_with_status_2_and_asks_nobody)
{
  EXPECT_EQ((Told{2, "", "starterctl: -c and -s exclude each other\n"}), tell("-c demo status"));
  EXPECT_EQ((Told{2, "", "starterctl: the command debug takes on or off\n"}), tell("debug maybe"));
  EXPECT_EQ((Told{3, "UNKNOWN: the command health takes no argument\n", ""}), tell("health x"));
  EXPECT_THAT(control_.requests(), IsEmpty());
}

TEST_F(starterctl_process, shows_its_usage_and_its_version)
{
  EXPECT_THAT(starterctl("--help").out, StartsWith("Usage: starterctl "));
  EXPECT_THAT(starterctl("--version").out, testing::MatchesRegex("starterctl [0-9.]+ \\(rev [0-9a-z]+\\)\n"));
  EXPECT_EQ(2, starterctl("--help >/dev/full").status);
}

// ---- Whatever may go wrong on the way

TEST_F(starterctl_process, waits_for_an_answer_that_comes_in_pieces)
{
  control_.send_bytes("{\"ok\":true," + std::string(SERVICES) + "}\n", false, true);
  EXPECT_EQ((Told{0, SERVICE_TABLE, ""}), tell("services"));
}

TEST_F(starterctl_process, says_what_is_wrong_with_the_answer)
{
  const std::string at = "starterctl: the process at " + socket_;
  const std::string not_understood = "starterctl: the answer of the process is not understood: ";
  const std::tuple<std::string, bool, std::string> cases[] = {
      {"", true, at + " has closed the connection without an answer\n"},
      {R"({"ok":tr)", true, at + " has closed the connection in the middle of its answer\n"},
      {"\n", false, not_understood + "it is no JSON\n"},
      {"{\"ok\":true}\x1b[2J\n", false, not_understood + "it is no JSON\n"},
      {"[{\"ok\":true}]\n", false, not_understood + "it is no JSON object\n"},
      {"{\"ok\":\"yes\"}\n", false, not_understood + "the member 'ok' is missing or is no truth value\n"},
      {"{\"ok\":true}\n", false, not_understood + "the member 'services' is missing or is no list\n"},
      {"{\"ok\":true,\"services\":[1]}\n", false,
       not_understood + "the member 'services' is missing or is no list of objects\n"},
      {"{\"ok\":true,\"services\":[{\"name\":1}]}\n", false,
       not_understood + "the member 'name' is missing or is no text\n"},
      {std::string((16U << 20) + 70000, ' '), false,
       "starterctl: the answer from " + socket_ + " is longer than 16777216 bytes\n"}};

  for (const auto& [answer, closes, err] : cases) {
    control_.send_bytes(answer, closes);
    EXPECT_EQ((Told{2, "", err}), tell("services")) << answer.substr(0, 100);
  }
}

TEST_F(starterctl_process, never_waits_longer_than_it_is_told_to)
{
  const std::string late = "starterctl: the process at " + socket_ +
                           " has not answered in time; it may still do what it has been asked for\n";

  control_.send_bytes("", false);
  EXPECT_EQ((Told{2, "", late}), tell("--timeout 1 status"));
  control_.send_bytes("{\"ok\"", false);
  EXPECT_EQ((Told{2, "", late}), tell("--timeout 1 status"));
  control_.stop_serving();
  EXPECT_EQ((Told{2, "", late}), tell("--timeout 1 status"));
}

TEST_F(starterctl_process, does_not_wait_for_a_place_among_the_clients_for_ever)
{
  control_.stop_serving();
  std::vector<std::unique_ptr<Fake_Client>> clients;
  do
    clients.push_back(std::make_unique<Fake_Client>(socket_));
  while (clients.back()->is_connected());

  EXPECT_EQ((Told{2, "", "starterctl: " + socket_ + " takes no connection in time\n"}), tell("--timeout 1 status"));
}

TEST_F(starterctl_process, says_that_nobody_listens)
{
  const std::string missing = dir_ / "missing";
  EXPECT_EQ((Told{2, "", "starterctl: cannot connect to " + missing + ": No such file or directory\n"}),
            starterctl("-s " + missing + " status"));
  EXPECT_EQ((Told{2, "", "starterctl: cannot connect to /dev/null: Connection refused\n"}),
            starterctl("-s /dev/null status"));
  EXPECT_EQ((Told{2, "", "starterctl: the path of a socket has 1 to 107 characters\n"}),
            starterctl("-s " + std::string(108, 'x') + " status"));
}

TEST_F(starterctl_process, says_that_an_account_has_no_access)
{
  NEEDS(is_root(), "root, to become another account");
  ASSERT_EQ(0, chmod(socket_.c_str(), 0600));
  const Told told = starterctl("-s " + socket_ + " status", "exec setpriv --reuid 65534 --clear-groups env ");
  EXPECT_EQ((Told{2, "", "starterctl: cannot connect to " + socket_ + ": Permission denied\n"}), told);
}

// A directory of components cannot be chosen on the command line: the file system is another one here.
TEST_F(starterctl_process, finds_the_only_component_that_runs)
{
  NEEDS(is_root() && can_mount(), "root, for mounts of its own");
  control_.answer("{\"ok\":true," + std::string(SERVICES) + "}");
  const std::string script = "mount -t tmpfs tmpfs /run && mkdir -p /run/starter/demo &&"
                             " ln -s " +
                             socket_ + " /run/starter/demo/control.socket && exec \"$@\"";
  const std::string before = "unshare --mount sh -c '" + script + "' sh env ";

  EXPECT_EQ((Told{0, "demo\n", ""}), starterctl("list", before));
  EXPECT_EQ((Told{0, SERVICE_TABLE, ""}), starterctl("services", before));
  EXPECT_EQ((Told{0, SERVICE_TABLE, ""}), starterctl("services -c demo", before));
  EXPECT_EQ(
      (Told{2, "", "starterctl: cannot connect to /run/starter/other/control.socket: No such file or directory\n"}),
      starterctl("services -c other", before));
}

// ---- The check before a reload

// A process of the program that seems to listen at the socket.
class Reloaded_Starter
{
public:
  Reloaded_Starter(const Fake_Control& control, const Temp_Dir& dir, const std::vector<std::string>& words,
                   const std::map<std::string, std::string>& env = {}, unsigned uid = 0)
      : pid_(fork())
  {
    if (pid_ != 0)
      return;
    for (const auto& [name, value] : env)
      setenv(name.c_str(), value.c_str(), 1);
    std::vector<const char*> argv{"starter"};
    for (const std::string& word : words)
      argv.push_back(word.c_str());
    argv.push_back(nullptr);
    const std::string log = dir / "log";
    if (chdir(dir.path().c_str()) == 0 && freopen(log.c_str(), "w", stderr) && (uid == 0 || setuid(uid) == 0) &&
        listen(control.fd(), 5) == 0) // from the account under which it runs
      execv(starter_executable().c_str(), const_cast<char**>(argv.data()));
    _exit(127);
  }

  ~Reloaded_Starter()
  {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  Reloaded_Starter(const Reloaded_Starter&) = delete;
  Reloaded_Starter& operator=(const Reloaded_Starter&) = delete;

  pid_t pid() const { return pid_; }

  // Wait until it runs its loop.
  bool is_up() const
  {
    return wait_until([&] { return is_in_event_loop(pid_); });
  }

private:
  pid_t pid_;
};

class starterctl_reload : public testing::Test
{
protected:
  void SetUp() override { control_.answer(R"({"ok":true,"ended":["A"],"started":["A"],"failed":[],"missing":[]})"); }

  Told tell(const std::string& arguments) const { return starterctl("-s " + socket_ + " reload " + arguments); }

  // Puts a script in the place of the checker, in a directory for the path.
  void write_checker(const std::string& script) const
  {
    const std::string checker = dir_.write("bin/starter-check", "#!/bin/sh\n" + script + '\n');
    ASSERT_EQ(0, chmod(checker.c_str(), 0755));
  }

  const Temp_Dir dir_;
  const std::string socket_ = dir_ / "control.socket";
  Fake_Control control_{socket_, false};
};

static const char RELOADED[] = "Ended:    A\nStarted:  A\n";
static const char HAS_ERRORS[] = "starterctl: the configuration has errors, and nothing is reloaded\n";

TEST_F(starterctl_reload, asks_the_checker_in_the_directory_and_with_the_variables_of_the_process)
{
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "$TEXT"));
  const Reloaded_Starter starter(control_, dir_, {"-f", "a.conf"}, {{"TEXT", "x"}});
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");

  EXPECT_EQ((Told{0, RELOADED, ""}), tell(""));
  EXPECT_THAT(control_.requests(), ElementsAre(R"({"command":"reload"})"));
}

TEST_F(starterctl_reload, is_refused_when_the_checker_finds_an_error)
{
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  const Reloaded_Starter starter(control_, dir_, {"-f", "a.conf"});
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");
  dir_.write("a.conf", "dynamic A Service_Object * /missing\x1b.so:_make_A()\n");

  const Told refused = tell("");
  EXPECT_EQ(1, refused.status);
  EXPECT_EQ("", refused.out);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("a.conf:1: library-not-loaded: "), HasSubstr("/missing\\x1b.so"),
                                 HasSubstr(HAS_ERRORS), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(control_.requests(), IsEmpty());

  const Told in_json = tell("--json");
  EXPECT_EQ(1, in_json.status);
  EXPECT_EQ("", in_json.err);
  EXPECT_THAT(in_json.out,
              AllOf(StartsWith("{\"error\":\"the configuration has errors, and nothing is reloaded\","
                               "\"findings\":[{\"file\":\"a.conf\",\"kind\":\"library-not-loaded\",\"line\":1,"),
                    testing::EndsWith("\"severity\":\"error\"}],\"ok\":false}\n")));

  EXPECT_EQ((Told{0, RELOADED, ""}), tell("--force"));
  EXPECT_EQ(1u, control_.requests().size());
}

TEST_F(starterctl_reload, shows_warnings_and_goes_on)
{
  dir_.write("a.conf", "# nothing\n");
  const Reloaded_Starter starter(control_, dir_, {"-f", "a.conf"});
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");

  const Told told = tell("");
  EXPECT_EQ(0, told.status);
  EXPECT_EQ(RELOADED, told.out);
  EXPECT_THAT(told.err, StartsWith("a.conf: warning: empty-file: "));
  EXPECT_EQ("", tell("--json").err);
}

TEST_F(starterctl_reload, is_refused_when_files_are_new_since_the_start_of_a_unit)
{
  dir_.write("d/a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  dir_.write("files", std::string("d/a.conf\0", 9));
  const Reloaded_Starter starter(control_, dir_, {"-f", "d"}, {{"RUNTIME_DIRECTORY", dir_.path()}});
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");
  EXPECT_EQ((Told{0, RELOADED, ""}), tell(""));

  dir_.write("d/b.conf", dynamic_directive("B", "talker", "_make_Talker", "x"));
  const Told told = tell("");
  EXPECT_EQ(1, told.status);
  EXPECT_THAT(told.err, AllOf(StartsWith("d/b.conf: changed-files: "), testing::EndsWith(HAS_ERRORS)));
}

TEST_F(starterctl_reload, checks_with_the_limit_of_descriptors_of_the_process)
{
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  const Reloaded_Starter starter(control_, dir_, {"--reactor", "dev_poll", "-f", "a.conf"});
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");
  const rlimit limit{6, 6};
  ASSERT_EQ(0, prlimit(starter.pid(), RLIMIT_NOFILE, &limit, nullptr));

  EXPECT_THAT(tell("").err, HasSubstr("command line: descriptor-limit: "));
}

// The constructor of the library that the component names runs in the checker: with the right of root, whoever may
// write the configuration of a component would be root.
TEST_F(starterctl_reload, runs_the_checker_as_the_account_of_the_process)
{
  NEEDS(is_root(), "root, to become another account");
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  write_checker("grep -E '^(Uid|Gid|Groups|NoNewPrivs|CapEff):' /proc/self/status >&2\n"
                "echo \"$TEXT $1 $2 $3 $4\" >&2\npwd >&2\necho '{\"findings\":[]}'");
  const Reloaded_Starter starter(control_, dir_, {"-f", dir_ / "a.conf"}, {{"TEXT", "text"}}, 65534);
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");

  const std::string arguments = "-s " + socket_ + " reload 2>&1";
  const Ended told = run("PATH=" + dir_ / "bin" + ":$PATH TEXT=root " TESTS_STARTERCTL " " + arguments);

  EXPECT_EQ(0, told.status);
  EXPECT_EQ("Ended:    A\nStarted:  A\n"
            "Uid:\\x0965534\\x0965534\\x0965534\\x0965534\n",
            told.output.substr(0, told.output.find("Gid")));
  EXPECT_THAT(told.output, AllOf(HasSubstr("CapEff:\\x090000000000000000\n"), HasSubstr("NoNewPrivs:\\x091\n"),
                                 HasSubstr("text --json --allow-warnings -f " + dir_ / "a.conf" + '\n' + dir_.path())));
}

// In the account of the process, the checker gets no other rights, and still the directory and the variables.
TEST_F(starterctl_reload, needs_no_rights_of_root_in_the_account_of_the_process)
{
  NEEDS(is_root(), "root, to become another account");
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  write_checker("echo \"$TEXT\" >&2\npwd >&2\necho '{\"findings\":[]}'");
  const Reloaded_Starter starter(control_, dir_, {"-f", dir_ / "a.conf"}, {{"TEXT", "text"}}, 65534);
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");
  ASSERT_EQ(0, chmod(socket_.c_str(), 0777));

  const Ended told = run("cd / && PATH=" + dir_ / "bin" + ":$PATH TEXT=own setpriv --reuid 65534 --clear-groups " +
                         TESTS_STARTERCTL " -s " + socket_ + " reload");

  EXPECT_EQ("Ended:    A\nStarted:  A\ntext\n" + dir_.path() + '\n', told.output);
}

TEST_F(starterctl_reload, is_refused_when_the_checker_cannot_say_anything)
{
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  const Reloaded_Starter starter(control_, dir_, {"-f", "a.conf"});
  ASSERT_TRUE(starter.is_up()) << read_file(dir_ / "log");

  const std::pair<const char*, const char*> cases[] = {
      {"echo '{\"findings\":[]}'; exit 2", "starter-check has failed\n"},
      {"echo '{\"findings\":{}}'", "starter-check has failed\n"},
      {"echo nonsense", "starter-check has failed\n"},
      {"kill -9 $$", "starter-check has failed\n"},
      {"exec sleep 1000", "starter-check has not ended in time\n"}};
  for (const auto& [script, problem] : cases) {
    write_checker(script);
    const std::string arguments = " -s " + socket_ + " --timeout 3 reload";
    const Ended told = run("PATH=" + dir_ / "bin" + ":$PATH " TESTS_STARTERCTL + arguments);

    EXPECT_EQ(2, told.status) << script;
    EXPECT_EQ("starterctl: the configuration cannot be checked, and nothing is reloaded: " + std::string(problem),
              told.output);
  }
  EXPECT_EQ("starterctl: the configuration cannot be checked, and nothing is reloaded: there is no starter-check\n",
            run("PATH=/nowhere " TESTS_STARTERCTL " -s " + socket_ + " reload").output);
  EXPECT_THAT(control_.requests(), IsEmpty());
}

// ---- The signal in place of the companion

TEST_F(starterctl_reload, sends_the_signal_if_nobody_listens)
{
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  Starter_Process starter({"-f", dir_ / "a.conf"});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::string pid = std::to_string(starter.pid());

  for (const char* const socket : {"/missing", "/dev/null"}) {
    starter.forget_log();
    EXPECT_EQ((Told{0, "Nobody listens at the control socket: the process " + pid + " has got a hang-up.\n", ""}),
              starterctl(std::string("-s ") + socket + " reload --or-signal " + pid));
    EXPECT_TRUE(starter.wait_for_record("x init.")) << starter.log();
  }
  EXPECT_EQ((Told{0, "{\"ok\":true,\"signalled\":" + pid + "}\n", ""}),
            starterctl("-s /missing --json reload --or-signal " + pid));
}

TEST_F(starterctl_reload, sends_no_signal_when_the_checker_finds_an_error_or_somebody_listens)
{
  dir_.write("a.conf", dynamic_directive("A", "talker", "_make_Talker", "x"));
  Starter_Process starter({"-f", dir_ / "a.conf"});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::string or_signal = "reload --or-signal " + std::to_string(starter.pid());

  ASSERT_EQ(0, listen(control_.fd(), 5));
  control_.answer(R"({"ok":false,"error":"no"})");
  EXPECT_EQ((Told{1, "", "starterctl: no\n"}), starterctl("-s " + socket_ + " --force " + or_signal));
  dir_.write("a.conf", "nonsense\n");
  EXPECT_THAT(starterctl("-s /missing " + or_signal).err, testing::EndsWith(HAS_ERRORS));
  EXPECT_EQ(2, starterctl("-s " + std::string(200, 'x') + " --force " + or_signal).status);

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status());
  EXPECT_EQ(0u, starter.count("Signal 1 ")) << starter.log();
}
