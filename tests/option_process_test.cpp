#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/syscall_trace.h"
#include "tests/support/wait_until.h"

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Priority_Reactor.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/TP_Reactor.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <memory>
#include <random>
#include <tuple>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

static const char SOURCE[] = "starter/starter.cpp";

static Logged created(const std::string& type, unsigned threads = 0)
{
  const std::string pool = threads < 2 ? "" : " with " + std::to_string(threads) + " threads";
  return info("Created '" + type + "' reactor" + pool + '\n').in(SOURCE);
}

static Logged no_factory(const std::string& type)
{
  return error("Failed to get reactor factory by '" + type + "'\n").in(SOURCE);
}

static Logged too_few_threads(unsigned threads)
{
  return error_failed("The number of threads (" + std::to_string(threads) + ") of thread pool reactor is less than 2")
      .in("scrt/make_reactor.cpp");
}

static Logged no_account(const std::string& user)
{
  return error("Failed to get " + user + " password entry, errno=2, No such file or directory\n").in(SOURCE);
}

static Logged no_group(const std::string& group)
{
  return error("Failed to get " + group + " group entry, errno=2, No such file or directory\n").in(SOURCE);
}

// A start with `args` must log `records` and make `threads` loop threads, of which `looping` stay.
static void expect_start(const Texts& args, const std::vector<Logged>& records, unsigned threads, unsigned looping,
                         const Start_Options& base = probed())
{
  SCOPED_TRACE(testing::PrintToString(args));
  Start_Options options = base;
  options.preload.push_back(preload_library("faults"));
  options.env["COUNT_THREADS"] = "threads";

  Starter_Process starter(args, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  EXPECT_TRUE(starter.wait_for_threads(1 + looping)) << starter.threads().size();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(records, starter.command_line_records());
  EXPECT_EQ(threads, read_file(starter.dir() / "threads").size()); // the count includes threads that were made late
}

// A start with `args`, which ask for no more than one thread, must log `records`.
static void expect_records(const Texts& args, const std::vector<Logged>& records,
                           const Start_Options& options = probed())
{
  expect_start(args, records, 0, 0, options);
}

// ---- The reactor and its threads

TEST(option_process, runs_the_default_reactor_in_the_main_thread_without_options)
{
  expect_start({}, {}, 0, 0);
}

TEST(option_process, runs_as_many_loop_threads_as_asked_for_if_they_are_two_or_more)
{
  for (const char* const type : {"select", "priority", "tp", "dev_poll"})
    for (const unsigned threads : {2U, 3U, 4U}) {
      // The last thread to own a select or a priority reactor runs its loop; the others return at once.
      const bool shared = std::string(type) == "tp" || std::string(type) == "dev_poll";
      expect_start({"--reactor", type, "--threads", std::to_string(threads)}, {created(type, threads)}, threads,
                   shared ? threads : 1);
    }
}

TEST(option_process, loops_in_the_main_thread_with_fewer_than_two_threads)
{
  for (const char* const type : {"select", "priority", "dev_poll"}) {
    expect_start({"--reactor", type}, {created(type)}, 0, 0);
    expect_start({"--reactor", type, "--threads", "0"}, {created(type)}, 0, 0);
    expect_start({"--reactor", type, "--threads", "1"}, {created(type)}, 0, 0);
  }
}

TEST(option_process, makes_no_thread_pool_of_fewer_than_two_threads)
{
  expect_start({"--reactor", "tp"}, {too_few_threads(0), no_factory("tp")}, 0, 0);
  expect_start({"--reactor", "tp", "--threads", "0"}, {too_few_threads(0), no_factory("tp")}, 0, 0);
  expect_start({"--reactor", "tp", "--threads", "1"}, {too_few_threads(1), no_factory("tp")}, 0, 0);
}

TEST(option_process, ignores_threads_without_a_reactor)
{
  expect_start({"--threads", "4"}, {}, 0, 0);
  expect_start({"--threads", "4", "--reactor", ""}, {}, 0, 0);
  expect_start({"--reactor=", "--threads", "4"}, {}, 0, 0);
  expect_start({"--threads", "4", "--reactor", "no such"}, {no_factory("no such")}, 0, 0);
}

TEST(option_process, says_nothing_about_an_empty_reactor_value)
{
  expect_records({"--reactor", ""}, {});
  expect_records({"--reactor="}, {});
  expect_records({"--reactor", "select", "--reactor="}, {}); // the later option counts
}

TEST(option_process, reports_a_reactor_type_that_it_does_not_know)
{
  for (const std::string type : {"SELECT", "Select", "select ", " select", "selec", "thread-pool", "dev-poll", "TP",
                                 "-", "--threads", "%s%d%n", "\xc3\xa9", "\x01\t\n"})
    expect_start({"--threads", "2", "--reactor", type}, {no_factory(type)}, 0, 0);
}

TEST(option_process, reports_a_reactor_that_cannot_be_allocated)
{
  const std::tuple<const char*, std::size_t> kinds[] = {{"select", sizeof(ACE_Select_Reactor)},
                                                        {"priority", sizeof(ACE_Priority_Reactor)},
                                                        {"tp", sizeof(ACE_TP_Reactor)},
                                                        {"dev_poll", sizeof(ACE_Dev_Poll_Reactor)}};

  for (const auto& [type, implementation_size] : kinds)
    for (const std::size_t size : {implementation_size, sizeof(ACE_Reactor)}) {
      SCOPED_TRACE(type);
      SCOPED_TRACE(size);
      Starter_Process starter({"--reactor", type, "--threads", "3"}, with_fault("FAULT_NEW", std::to_string(size)));
      ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
      EXPECT_EQ(1U, starter.threads().size());
      starter.send(SIGTERM);

      EXPECT_EQ(0, starter.wait_status()) << starter.log();
      EXPECT_THAT(starter.command_line_records(),
                  ElementsAre(error("Failed to create '" + std::string(type) + "' reactor\n").in(SOURCE)));
      ASSERT_FALSE(starter.records().empty());
      EXPECT_EQ(ENOMEM, starter.records()[0].error);
    }
}

TEST(option_process, dispatches_with_the_reactor_of_the_command_line)
{
  const std::tuple<Texts, bool (*)(long)> cases[] = {{{"--reactor", "dev_poll"}, waits_in_epoll},
                                                     {{"--reactor", "select"}, waits_in_select},
                                                     {{}, waits_in_select}}; // the framework's default

  for (const auto& [args, is_wait] : cases) {
    SCOPED_TRACE(testing::PrintToString(args));
    Starter_Process starter(args);
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    EXPECT_TRUE(is_wait(starter.waiting_call())) << starter.waiting_call();
  }
}

// ---- How the line is read

TEST(option_process, takes_an_argument_joined_or_as_the_next_word)
{
  for (const Texts& args : {Texts{"--reactor", "select", "--threads", "3"}, Texts{"--reactor=select", "--threads=3"},
                            Texts{"--threads=3", "--reactor", "select"}, Texts{"--threads", "3", "--reactor=select"}})
    expect_start(args, {created("select", 3)}, 3, 1);
}

TEST(option_process, keeps_what_follows_the_first_equals_sign)
{
  expect_records({"--reactor=a=b"}, {no_factory("a=b")});
  expect_records({"--reactor==select"}, {no_factory("=select")});
}

TEST(option_process, takes_an_unambiguous_prefix_of_an_option)
{
  expect_start({"--thr", "2", "--r", "dev_poll"}, {created("dev_poll", 2)}, 2, 2);
  expect_start({"--t=2", "--reac=dev_poll"}, {created("dev_poll", 2)}, 2, 2);
  expect_records({"--u", "no-such-user"}, {no_account("no-such-user")});
  expect_records({"--p=no-such-group"}, {no_group("no-such-group")});
  expect_records({"--primary=no-such-group"}, {no_group("no-such-group")});
}

TEST(option_process, passes_over_what_is_not_its_own)
{
  for (const Texts& foreign :
       {Texts{"--unknown"}, Texts{"--unknown=select"}, Texts{"-x"}, Texts{"-"}, Texts{"stray"}, Texts{"--=select"},
        Texts{"--reactors", "tp"}, Texts{"--reactors=tp"}, Texts{"--Reactor=tp"}, Texts{"-reactor=tp"},
        Texts{"-r", "tp"}, Texts{"---reactor=tp"}, Texts{"reactor=tp"}, Texts{""}, Texts{"--thread-pool", "8"},
        Texts{"--thread-pool=8"}, Texts{"\xc3\xa9", "--\xff", "-\x80"}, Texts{"-W", "reactor=tp"}}) {
    Texts before = foreign;
    before.insert(before.end(), {"--reactor", "select", "--threads", "2"});
    expect_start(before, {created("select", 2)}, 2, 1);

    Texts between{"--reactor", "select"};
    between.insert(between.end(), foreign.begin(), foreign.end());
    between.insert(between.end(), {"--threads", "2"});
    expect_start(between, {created("select", 2)}, 2, 1);
  }
}

TEST(option_process, prints_nothing_about_what_is_not_its_own)
{
  Starter_Process starter({"--unknown", "--=x", "-x", "stray", "--user"});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  for (const char* const text : {"illegal", "ambiguous", "requires", "unknown", "stray"})
    EXPECT_EQ(0U, starter.count(text)) << starter.log();
}

TEST(option_process, does_not_take_the_option_behind_an_unknown_one_for_its_value)
{
  expect_records({"--unknown", "--reactor", "select"}, {created("select")});
}

TEST(option_process, takes_the_next_word_as_argument_whatever_it_looks_like)
{
  expect_records({"--user", "--reactor", "select"}, {no_account("--reactor")});
  expect_records({"--threads", "--reactor", "select"}, {});
  expect_records({"--reactor", "--"}, {no_factory("--")});
}

TEST(option_process, passes_over_an_option_without_its_argument_at_the_end_of_the_line)
{
  for (const char* const last : {"--threads", "--reactor", "--user", "--primary-group", "--group", "--t", "--r"})
    expect_start({"--reactor", "dev_poll", "--threads", "2", last}, {created("dev_poll", 2)}, 2, 2);
}

TEST(option_process, stops_at_two_dashes)
{
  expect_records({"--reactor", "select", "--", "--threads", "2", "--reactor", "dev_poll"}, {created("select")});
  expect_records({"--", "--reactor", "select"}, {});
}

TEST(option_process, reads_on_after_stray_words_with_posixly_correct_in_the_environment)
{
  for (const char* const value : {"", "1"}) {
    Start_Options options = probed();
    options.env["POSIXLY_CORRECT"] = value;
    expect_start({"stray", "words", "--reactor", "select", "another", "--threads", "3"}, {created("select", 3)}, 3, 1,
                 options);
  }
}

TEST(option_process, takes_the_last_of_the_options_that_hold_one_value)
{
  expect_start({"--reactor", "dev_poll", "--threads", "4", "--threads", "3", "--reactor=select"},
               {created("select", 3)}, 3, 1);
  expect_records({"--user", "no-such-first", "--user", "no-such-second"}, {no_account("no-such-second")});
  expect_records({"--primary-group", "no-such-first", "--primary-group", "no-such-second"},
                 {no_group("no-such-second")});
}

TEST(option_process, uses_every_supplementary_group_in_the_order_of_the_line)
{
  Starter_Process starter({"--group", "no-such-c", "--group=no-such-a", "stray", "--g", "no-such-b"}, probed());
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  const std::vector<Logged> records = starter.command_line_records();
  ASSERT_LE(3U, records.size());
  EXPECT_THAT(std::vector<Logged>(records.begin(), records.begin() + 3),
              ElementsAre(no_group("no-such-c"), no_group("no-such-a"), no_group("no-such-b")));
}

TEST(option_process, reads_the_leading_digits_of_a_thread_count)
{
  const std::tuple<const char*, unsigned> cases[] = {
      {"4x", 4}, {"+3", 3},  {"007", 7}, {"2 3", 2}, {"2.9", 2}, {"-2", 0},  {"x", 0},   {"", 0},
      {" 4", 0}, {"0x4", 0}, {"-", 0},   {"+", 0},   {"1", 1},   {"1e3", 1}, {"\t2", 0}, {"2\n", 2}};

  for (const auto& [text, threads] : cases) {
    const unsigned spawned = threads < 2 ? 0 : threads;
    expect_start({"--reactor", "dev_poll", "--threads", text}, {created("dev_poll", threads)}, spawned, spawned);
    expect_start({"--reactor", "dev_poll", std::string("--threads=") + text}, {created("dev_poll", threads)}, spawned,
                 spawned);
  }
}

TEST(option_process, says_that_no_thread_of_a_pool_can_be_made_and_ends_with_status_0)
{
  for (const char* const type : {"select", "tp", "dev_poll", "priority"}) {
    SCOPED_TRACE(type);
    Starter_Process starter({"--reactor", type, "--threads", "3"}, with_fault("FAULT_THREADS"));

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    const std::vector<Record> records = starter.records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(
        error_failed("Failed to spawn 3 event loop threads, errno=11, Resource temporarily unavailable\n").in(SOURCE),
        with_file(records.back()));
  }
}

// When no thread can be made, the main thread waits for none, and the process ends in order.
TEST(option_process, reduces_a_thread_count_that_is_too_large_to_the_largest_number)
{
  for (const char* const text : {"4294967295", "4294967296", "99999999999999999999", "4294967296x"}) {
    SCOPED_TRACE(text);
    Starter_Process starter({"--reactor", "select", "--threads", text}, with_fault("FAULT_THREADS"));

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_THAT(starter.command_line_records(), ElementsAre(created("select", 4294967295)));
  }
}

TEST(option_process, leaves_the_line_as_it_is_for_the_configurator)
{
  const Texts lines[] = {
      {"-p", "pid", "-n", "-f", "none.conf", "--reactor", "select", "--threads", "3"},
      {"--reactor", "select", "-np", "pid", "--threads=3", "-f", "none.conf"},
      {"stray", "--reactor=select", "--threads", "3", "word", "-ppid", "-k", "localhost:20012"},
      {"-S", "# --reactor dev_poll", "--reactor=select", "-f", "none.conf", "--threads", "3", "-p", "pid", "-y"}};

  for (const Texts& args : lines) {
    SCOPED_TRACE(testing::PrintToString(args));
    Starter_Process starter(args, probed());
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_TRUE(wait_until([&] { return read_file(starter.dir() / "pid") == std::to_string(starter.pid()) + '\n'; }))
        << read_file(starter.dir() / "pid");

    std::string line = "starter";
    for (const std::string& arg : args)
      line += '\0' + arg;
    EXPECT_EQ(line + '\0', read_file("/proc/" + std::to_string(starter.pid()) + "/cmdline"));
    EXPECT_THAT(starter.command_line_records(), ElementsAre(created("select", 3)));
  }
}

// The option -d makes the framework log more and changes nothing else.
TEST(option_process, acts_on_its_options_beside_the_debug_option_too)
{
  expect_start({"-d", "--reactor", "select", "-d", "--threads", "3"}, {created("select", 3)}, 3, 1);
}

// ---- The background

// The descendant of a process that went to the background. The test adopts it as its child, so that the test can wait
// for its end. The destructor kills it.
class Daemon
{
public:
  Daemon() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
  ~Daemon();

  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  pid_t pid() const { return pid_; }

  /// Wait until the daemon exists and runs its event loop.
  bool wait_for_event_loop();

  int wait_status();

  std::string link(const std::string& name) const;

private:
  pid_t pid_ = -1;
};

// The child of this process that is alive. The process in between has ended.
static pid_t find_child()
{
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = std::atoi(entry.path().filename().c_str());
    if (pid > 0 && process_status_field(pid, "PPid") == std::to_string(getpid()) &&
        process_status_field(pid, "Name") == "starter" && process_status_field(pid, "State")[0] != 'Z')
      return pid;
  }
  return -1;
}

bool Daemon::wait_for_event_loop()
{
  return wait_until([this] {
    pid_ = find_child();
    return pid_ != -1 && is_in_event_loop(pid_);
  });
}

int Daemon::wait_status()
{
  int status = -1;
  const bool ended = wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  if (ended)
    pid_ = -1;
  return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Daemon::link(const std::string& name) const
{
  std::error_code ignored; // an empty text shows the error
  return std::filesystem::read_symlink("/proc/" + std::to_string(pid_) + '/' + name, ignored);
}

Daemon::~Daemon()
{
  if (pid_ != -1)
    kill(pid_, SIGKILL);
  while (waitpid(-1, nullptr, pid_ == -1 ? WNOHANG : 0) > 0) {
  }
}

TEST(option_process, goes_to_the_background)
{
  Daemon daemon;
  Starter_Process starter({"--background"}, probed());

  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  ASSERT_TRUE(daemon.wait_for_event_loop());
  EXPECT_NE(starter.pid(), daemon.pid());
  EXPECT_EQ("/", daemon.link("cwd"));
  EXPECT_EQ("0000", process_status_field(daemon.pid(), "Umask"));
  EXPECT_NE(getsid(0), getsid(daemon.pid()));
  EXPECT_NE(starter.pid(), getsid(daemon.pid()));
  EXPECT_NE(daemon.pid(), getsid(daemon.pid())) << "a session leader could get a terminal";
  EXPECT_THAT(starter.command_line_records(), IsEmpty());

  kill(daemon.pid(), SIGTERM);
  EXPECT_EQ(0, daemon.wait_status());
}

TEST(option_process, closes_inherited_descriptors_in_the_background)
{
  int fds[2];
  ASSERT_EQ(0, pipe(fds)); // without close-on-exec
  char inherited[64];
  std::snprintf(inherited, sizeof inherited, "fd/%d", fds[1]);
  const std::string pipe_name = std::filesystem::read_symlink("/proc/self/" + std::string(inherited));

  Daemon daemon;
  Starter_Process starter({"--background"});
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  close(fds[0]);
  close(fds[1]);

  ASSERT_TRUE(daemon.wait_for_event_loop());
  for (const char* const fd : {"fd/0", "fd/1", "fd/2"})
    EXPECT_EQ("/dev/null", daemon.link(fd));
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/fd"))
    EXPECT_NE(pipe_name, daemon.link("fd/" + entry.path().filename().string()));
}

TEST(option_process, makes_the_reactor_in_the_background_after_the_identity_switch)
{
  Daemon daemon;
  Starter_Process starter({"--reactor", "dev_poll", "--threads", "2", "--user", "no-such-user", "--background"},
                          probed());
  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  ASSERT_TRUE(daemon.wait_for_event_loop());
  EXPECT_THAT(starter.command_line_records(), ElementsAre(no_account("no-such-user"), created("dev_poll", 2)));
  // A reactor that was made earlier would have lost its descriptors.
  unsigned reactors = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/fd"))
    reactors += daemon.link("fd/" + entry.path().filename().string()) == "anon_inode:[eventpoll]";
  EXPECT_EQ(1U, reactors);
  EXPECT_TRUE(wait_until([&] { return process_status_field(daemon.pid(), "Threads") == "3"; }));

  kill(daemon.pid(), SIGTERM);
  EXPECT_EQ(0, daemon.wait_status());
}

TEST(option_process, goes_to_the_background_although_the_option_has_a_value)
{
  for (const char* const word : {"--background=no", "--background=", "--b", "--backg=0"}) {
    SCOPED_TRACE(word);
    Daemon daemon;
    Starter_Process starter({word});

    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_TRUE(daemon.wait_for_event_loop());
  }
}

TEST(option_process, takes_no_argument_for_background)
{
  Daemon daemon;
  Starter_Process starter({"--background", "--reactor", "select"}, probed());
  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  ASSERT_TRUE(daemon.wait_for_event_loop());
  EXPECT_THAT(starter.command_line_records(), ElementsAre(created("select")));
}

TEST(option_process, starts_in_the_foreground_when_it_cannot_go_to_the_background)
{
  Starter_Process starter({"--background", "--reactor", "select", "--threads", "3", "--user", "no-such-user",
                           "--primary-group", "no-such-group", "--group", "no-such-group"},
                          with_fault("FAULT_FORK"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  EXPECT_EQ(starter.dir().path(),
            std::filesystem::read_symlink("/proc/" + std::to_string(starter.pid()) + "/cwd").string());
  EXPECT_EQ(1U, starter.threads().size());
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_THAT(starter.command_line_records(), IsEmpty()); // the program looked up no account and made no reactor
}

// ---- The order of the start

TEST(option_process, has_its_reactor_before_its_signal_dispositions_and_those_before_services)
{
  NEEDS(can_trace(), "strace and the right to trace processes");
  Start_Options options = probed();
  const Syscall_Trace trace("epoll_create,epoll_create1,rt_sigaction,openat");
  trace.apply_to(options);

  Starter_Process starter({"--reactor", "dev_poll"}, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();

  Texts order;
  for (const std::string& call : trace.calls(starter.pid()))
    for (const char* const step : {"epoll_create", "rt_sigaction(SIGTERM", "svc.conf"})
      if (call.find(step) != std::string::npos)
        order.push_back(step);
  order.erase(std::unique(order.begin(), order.end()), order.end());
  EXPECT_THAT(order, ElementsAre("epoll_create", "rt_sigaction(SIGTERM", "svc.conf"));
}

// ---- Lines that nobody wrote

// Words for a command line. None of them sends the process to the background, gives a signal another meaning, writes a
// file or makes more than a few threads, because the test could not control such a process.
class Line_Generator
{
public:
  Texts next();

private:
  std::size_t below(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_); }
  std::string pick(const Texts& texts) { return texts[below(texts.size())]; }
  std::string text();
  std::string word();

  std::mt19937 random_{20240607};
};

// Any bytes except NUL and digits, which could make a number of threads.
std::string Line_Generator::text()
{
  const std::size_t lengths[] = {0, 1, 2, 8, 100, 20000};
  std::string text(below(lengths[below(std::size(lengths))] + 1), '\0');
  for (char& c : text)
    do
      c = static_cast<char>(1 + below(255));
    while (c >= '0' && c <= '9');
  return text[0] == '-' ? 'x' + text : text;
}

std::string Line_Generator::word()
{
  static const Texts names{"threads", "reactor", "user", "primary-group", "group"};
  static const Texts values{"0",  "1",  "2",      "3",        "-2",       "4x",     "+",      "",
                            "tp", "TP", "select", "dev_poll", "priority", "nobody", "daemon", "-1"};

  switch (below(10)) {
  case 0:
    return text();
  case 1:
    return pick({"-", "---", "", "=", "-=", "--="});
  case 2:
    return pick({"-d", "-n", "-y", "-x", "-dny", "-f", "-fnone", "-k", "-S", "-xyz"});
  case 3:
    return "--x" + text();
  case 4:
  case 5:
    return pick(values);
  case 6:
  case 7: {
    const std::string name = pick(names);
    return "--" + name.substr(0, 1 + below(name.size()));
  }
  case 8:
    return "--" + pick(names) + '=' + pick(values);
  default:
    return "--" + pick(names) + '=' + text();
  }
}

Texts Line_Generator::next()
{
  const std::size_t lengths[] = {1, 5, 20, 50};
  Texts line(below(lengths[below(std::size(lengths))] + 1));
  for (std::string& w : line)
    w = word();
  if (below(20) == 0) // sometimes the options end early
    line.insert(line.begin() + static_cast<std::ptrdiff_t>(below(line.size() + 1)), "--");
  return line;
}

static void expect_orderly_ends(const std::vector<Texts>& lines)
{
  std::vector<std::unique_ptr<Starter_Process>> starters;
  for (const Texts& line : lines)
    starters.push_back(std::make_unique<Starter_Process>(line));

  for (std::size_t i = 0; i != lines.size(); ++i) {
    SCOPED_TRACE(testing::PrintToString(lines[i]));
    EXPECT_TRUE(starters[i]->wait_for_event_loop()) << starters[i]->log();
    starters[i]->send(SIGTERM);
    EXPECT_EQ(0, starters[i]->wait_status()) << starters[i]->log();
  }
}

TEST(option_process, starts_and_ends_in_order_with_any_command_line)
{
  enum { BATCHES = 75, BATCH_SIZE = 4 };
  Line_Generator generator;

  for (int batch = 0; batch < BATCHES && !testing::Test::HasFailure(); ++batch) {
    std::vector<Texts> lines(BATCH_SIZE);
    for (Texts& line : lines)
      line = generator.next();
    expect_orderly_ends(lines);
  }
}

TEST(option_process, takes_thousands_of_options)
{
  Texts groups;
  Texts mixed;
  for (int i = 0; i < 2000; ++i) {
    groups.push_back("--group=no-such-group");
    mixed.insert(mixed.end(), {"--threads", "2", "--reactor=select", "-x", "stray", "--user="});
  }
  groups.insert(groups.end(), {"--reactor", "select"});
  mixed.push_back("--reactor=dev_poll");

  expect_orderly_ends({groups, mixed, Texts(20000, "-"), Texts(20000, ""), Texts(20000, "--unknown")});
}
