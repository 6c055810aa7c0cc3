// Holds libstarter-notify.so against the manual pages and against systemd's own library: every test runs with both, and
// the last ones compare the two call by call.

#include "tests/support/command.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <dlfcn.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;

static const char SYSTEMDS[] = "libsystemd.so.0";

// A variable of the environment is unset where the text is missing.
using Setting = std::optional<std::string>;

static void set(const char* name, const Setting& value)
{
  if (value)
    setenv(name, value->c_str(), 1);
  else
    unsetenv(name);
}

static Setting get(const char* name)
{
  const char* const value = std::getenv(name);
  return value ? Setting(value) : std::nullopt;
}

static std::string shown(const Setting& value)
{
  return value ? '"' + *value + '"' : "unset";
}

// The three functions of a client library.
class Library
{
public:
  explicit Library(const char* name) : handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL))
  {
    if (handle_) {
      booted = reinterpret_cast<int (*)()>(dlsym(handle_, "sd_booted"));
      notify = reinterpret_cast<int (*)(int, const char*)>(dlsym(handle_, "sd_notify"));
      watchdog_enabled = reinterpret_cast<int (*)(int, std::uint64_t*)>(dlsym(handle_, "sd_watchdog_enabled"));
    }
  }
  ~Library()
  {
    if (handle_)
      dlclose(handle_);
  }

  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool is_complete() const { return booted && notify && watchdog_enabled; }

  int (*booted)() = nullptr;
  int (*notify)(int, const char*) = nullptr;
  int (*watchdog_enabled)(int, std::uint64_t*) = nullptr;

private:
  void* const handle_;
};

// A socket for datagrams. `name` is a path, or "@" and the name of an abstract socket.
class Datagram_Socket
{
public:
  explicit Datagram_Socket(const std::string& name) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
  {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path);
    if (name[0] == '@')
      address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), length) != 0)
      ADD_FAILURE() << "no socket at " << name;
  }
  ~Datagram_Socket() { close(fd_); }

  Datagram_Socket(const Datagram_Socket&) = delete;
  Datagram_Socket& operator=(const Datagram_Socket&) = delete;

  std::vector<std::string> receive_all() const
  {
    std::vector<std::string> texts;
    char buf[4096];
    for (ssize_t n; (n = recv(fd_, buf, sizeof buf, 0)) >= 0;)
      texts.emplace_back(buf, static_cast<std::size_t>(n));
    return texts;
  }

private:
  const int fd_;
};

static std::string own_pid()
{
  return std::to_string(getpid());
}

// ---- Each of the libraries

class client_library : public testing::TestWithParam<const char*>
{
protected:
  void SetUp() override
  {
    NEEDS(library_.is_complete(), GetParam());
    for (const char* const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
      unsetenv(name);
  }

  const Temp_Dir dir_;
  const Library library_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(, client_library, testing::Values(TESTS_NOTIFY_LIBRARY, SYSTEMDS), [](const auto& library) {
  return library.param == std::string(SYSTEMDS) ? "of_systemd" : "of_starter";
});

TEST_P(client_library, sends_a_state_to_a_socket_with_a_path)
{
  const Datagram_Socket receiver(dir_ / "socket");
  set("NOTIFY_SOCKET", dir_ / "socket");

  EXPECT_EQ(1, library_.notify(0, "READY=1\n"));
  EXPECT_EQ(1, library_.notify(0, "WATCHDOG=1\n"));
  EXPECT_EQ(1, library_.notify(0, ""));

  EXPECT_THAT(receiver.receive_all(), ElementsAre("READY=1\n", "WATCHDOG=1\n", ""));
  EXPECT_EQ(dir_ / "socket", get("NOTIFY_SOCKET"));
}

TEST_P(client_library, sends_a_state_to_an_abstract_socket)
{
  const std::string name = "@starter-notify-test-" + own_pid() + GetParam();
  const std::string cut = name.substr(0, 100);
  const Datagram_Socket receiver(cut);
  set("NOTIFY_SOCKET", cut);

  EXPECT_EQ(1, library_.notify(0, "READY=1\n"));
  EXPECT_THAT(receiver.receive_all(), ElementsAre("READY=1\n"));
}

TEST_P(client_library, knows_names_of_sockets_up_to_the_length_that_fits)
{
  const std::string longest = (dir_ / "") + std::string(sizeof(sockaddr_un::sun_path) - 1 - (dir_ / "").size(), 's');
  const Datagram_Socket receiver(longest);
  set("NOTIFY_SOCKET", longest);
  EXPECT_EQ(1, library_.notify(0, "READY=1\n"));
  EXPECT_THAT(receiver.receive_all(), ElementsAre("READY=1\n"));

  set("NOTIFY_SOCKET", longest + 's');
  EXPECT_EQ(-ENAMETOOLONG, library_.notify(0, "READY=1\n"));
  set("NOTIFY_SOCKET", '@' + longest);
  EXPECT_EQ(-EINVAL, library_.notify(0, "READY=1\n"));
}

TEST_P(client_library, answers_0_without_a_socket_and_an_error_for_one_that_it_cannot_reach)
{
  dir_.write("file", "");
  const std::pair<Setting, int> cases[] = {{std::nullopt, 0},
                                           {"", -EINVAL},
                                           {"/", -EINVAL},
                                           {"@", -EINVAL},
                                           {"socket", -EINVAL},
                                           {" /socket", -EINVAL},
                                           {dir_ / "none", -ENOENT},
                                           {dir_ / "file", -ECONNREFUSED},
                                           {dir_ / "file/socket", -ENOTDIR},
                                           {"@starter-notify-test-none", -ECONNREFUSED}};

  for (const auto& [name, result] : cases) {
    SCOPED_TRACE(shown(name));
    set("NOTIFY_SOCKET", name);
    EXPECT_EQ(result, library_.notify(0, "READY=1\n"));
    EXPECT_EQ(name, get("NOTIFY_SOCKET"));
  }
}

TEST_P(client_library, refuses_a_null_state)
{
  const Datagram_Socket receiver(dir_ / "socket");
  set("NOTIFY_SOCKET", dir_ / "socket");

  EXPECT_EQ(-EINVAL, library_.notify(0, nullptr));
  EXPECT_THAT(receiver.receive_all(), IsEmpty());
}

TEST_P(client_library, forgets_the_socket_on_request_whatever_the_result)
{
  for (const std::string& name : {dir_ / "socket", std::string("nonsense")}) {
    set("NOTIFY_SOCKET", name);
    (void)library_.notify(1, "READY=1\n"); // there is no such socket
    EXPECT_EQ(std::nullopt, get("NOTIFY_SOCKET")) << name;
  }

  set("NOTIFY_SOCKET", "/socket");
  EXPECT_EQ(-EINVAL, library_.notify(1, nullptr));
  EXPECT_EQ(std::nullopt, get("NOTIFY_SOCKET"));
}

TEST_P(client_library, keeps_no_descriptor_open)
{
  const Datagram_Socket receiver(dir_ / "socket");
  const int next = dup(STDERR_FILENO);
  close(next);

  for (const std::string& name : {dir_ / "socket", dir_ / "none"}) {
    set("NOTIFY_SOCKET", name);
    (void)library_.notify(0, "READY=1\n"); // one of the two sockets exists
  }

  const int again = dup(STDERR_FILENO);
  close(again);
  EXPECT_EQ(next, again);
}

TEST_P(client_library, tells_the_period_of_a_watchdog_for_this_process_or_nobody_in_particular)
{
  const std::tuple<std::string, Setting, std::uint64_t> cases[] = {
      {"30000000", std::nullopt, 30000000}, {"1", own_pid(), 1}, {"18446744073709551614", own_pid(), UINT64_MAX - 1}};

  for (const auto& [usec, pid, expected] : cases) {
    SCOPED_TRACE(usec);
    set("WATCHDOG_USEC", usec);
    set("WATCHDOG_PID", pid);
    std::uint64_t period = 0;
    EXPECT_EQ(1, library_.watchdog_enabled(0, &period));
    EXPECT_EQ(expected, period);
    EXPECT_EQ(1, library_.watchdog_enabled(0, nullptr));
    EXPECT_EQ(usec, get("WATCHDOG_USEC"));
    EXPECT_EQ(pid, get("WATCHDOG_PID"));
  }
}

TEST_P(client_library, finds_no_watchdog_without_a_period_or_for_another_process)
{
  const std::tuple<Setting, Setting, int> cases[] = {{std::nullopt, std::nullopt, 0},
                                                     {std::nullopt, own_pid(), 0},
                                                     {"30000000", "1", 0},
                                                     {"30000000", "", -EINVAL},
                                                     {"30000000", "self", -EINVAL},
                                                     {"30000000", "0", -ERANGE},
                                                     {"30000000", "-1", -ERANGE},
                                                     {"30000000", own_pid() + "x", -EINVAL},
                                                     {"30000000", "2147483648", -ERANGE},
                                                     {"", std::nullopt, -EINVAL},
                                                     {"0", std::nullopt, -EINVAL},
                                                     {"soon", std::nullopt, -EINVAL},
                                                     {"-5", std::nullopt, -ERANGE},
                                                     {"30000000us", std::nullopt, -EINVAL},
                                                     {"18446744073709551615", std::nullopt, -EINVAL},
                                                     {"18446744073709551616", std::nullopt, -ERANGE}};

  for (const auto& [usec, pid, result] : cases) {
    SCOPED_TRACE(shown(usec) + ' ' + shown(pid));
    set("WATCHDOG_USEC", usec);
    set("WATCHDOG_PID", pid);
    std::uint64_t period = 77;
    EXPECT_EQ(result, library_.watchdog_enabled(0, &period));
    EXPECT_EQ(77u, period);
  }
}

TEST_P(client_library, forgets_the_watchdog_on_request_whatever_the_result)
{
  for (const Setting& usec : {Setting("30000000"), Setting("soon"), Setting()})
    for (const Setting& pid : {Setting(own_pid()), Setting("1"), Setting("self"), Setting()}) {
      SCOPED_TRACE(shown(usec) + ' ' + shown(pid));
      set("WATCHDOG_USEC", usec);
      set("WATCHDOG_PID", pid);
      (void)library_.watchdog_enabled(1, nullptr); // the result is that of the other tests
      EXPECT_EQ(std::nullopt, get("WATCHDOG_USEC"));
      EXPECT_EQ(std::nullopt, get("WATCHDOG_PID"));
    }
}

// What the library answers in a mount namespace whose /run is as `script` makes it.
static int booted_after(const std::string& script, const Library& library)
{
  const pid_t pid = fork();
  if (pid == 0) {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0 || std::system(("cd /run && " + script).c_str()) != 0)
      _exit(255);
    _exit(100 - library.booted());
  }

  int status = 0;
  waitpid(pid, &status, 0);
  return 100 - WEXITSTATUS(status);
}

TEST_P(client_library, tells_whether_systemd_has_booted_the_machine)
{
  NEEDS(is_root() && can_mount(), "root, for mounts of its own");
  const std::pair<const char*, int> cases[] = {{"mkdir -p systemd/system", 1},
                                               {":", 0},
                                               {"mkdir systemd", 0},
                                               {"mkdir systemd && ln -s /nowhere systemd/system", 0},
                                               {"mkdir -p other systemd && ln -s ../other systemd/system", 1},
                                               {"mkdir systemd && : >systemd/system", -ENOTDIR},
                                               {": >systemd", -ENOTDIR},
                                               {"ln -s systemd systemd", -ELOOP}};

  for (const auto& [script, result] : cases)
    EXPECT_EQ(result, booted_after(script, library_)) << script;
}

// ---- Both libraries call by call

class notify_library : public testing::Test
{
protected:
  void SetUp() override
  {
    ASSERT_TRUE(own_.is_complete());
    NEEDS(systemds_.is_complete(), SYSTEMDS);
  }

  const Library own_{TESTS_NOTIFY_LIBRARY};
  const Library systemds_{SYSTEMDS};
};

TEST_F(notify_library, reads_any_number_of_the_environment_as_systemds_library_does)
{
  const std::string pid = own_pid();
  std::vector<Setting> periods{std::nullopt};
  std::vector<Setting> processes{std::nullopt};
  for (const char* const sign : {"", " ", "\t", "\n", "\v", "+", "-", "- ", "--"})
    for (const char* const base : {"", "0", "0x", "0X", "0b", "0B", "0o", "0O"})
      for (const std::string number : {"", "0", "1", "17", "9", "2147483647", "2147483648", "ff", "9us", "1 "})
        periods.emplace_back(sign + (base + number));
  for (const std::string number :
       {"4294967297", "18446744073709551614", "18446744073709551615", "18446744073709551616"})
    for (const char* const sign : {"", "-"})
      periods.emplace_back(sign + number);
  for (const std::string& number : {pid, "0" + pid, ' ' + pid, '+' + pid, '-' + pid, pid + '\n',
                                    std::to_string(4294967296 + getpid()), std::string("1"), std::string()})
    processes.emplace_back(number);
  for (const Setting& period : periods)
    processes.push_back(period);

  const auto result_of = [](const Library& library, const Setting& usec, const Setting& process, int unset) {
    set("WATCHDOG_USEC", usec);
    set("WATCHDOG_PID", process);
    std::uint64_t period = 77;
    const int result = library.watchdog_enabled(unset, &period);
    return std::make_tuple(result, period, get("WATCHDOG_USEC"), get("WATCHDOG_PID"));
  };
  for (const int unset : {0, 1}) {
    for (const Setting& period : periods)
      EXPECT_EQ(result_of(systemds_, period, pid, unset), result_of(own_, period, pid, unset)) << shown(period);
    for (const Setting& process : processes)
      for (const char* const period : {"5", "x"})
        EXPECT_EQ(result_of(systemds_, period, process, unset), result_of(own_, period, process, unset))
            << period << ' ' << shown(process);
  }
}

TEST_F(notify_library, exports_three_functions_and_needs_the_c_library_only)
{
  NEEDS(has_tool("readelf") && has_tool("nm"), "binutils");
  EXPECT_EQ("sd_booted\nsd_notify\nsd_watchdog_enabled\n",
            output_of("nm -D --defined-only " TESTS_NOTIFY_LIBRARY " | awk '{ print $3 }' | sort"));
  if (TESTS_IS_INSTRUMENTED)
    GTEST_SKIP() << "The instrumentation of this build brings libraries.";
  EXPECT_EQ("[libc.so.6]\n",
            output_of("readelf --dynamic --wide " TESTS_NOTIFY_LIBRARY " | awk '/NEEDED/ { print $NF }'"));
}
