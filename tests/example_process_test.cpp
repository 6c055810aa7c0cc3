// The examples timer, active and stream, run from their own configuration directories. Echo has a test of its own.

#include "tests/support/starter_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

using ::testing::HasSubstr;

static const std::vector<std::vector<std::string>> POOLS = {{"--reactor", "tp", "--threads", "4"},
                                                            {"--reactor", "dev_poll", "--threads", "4"}};

static std::vector<std::vector<std::string>> all_kinds()
{
  std::vector<std::vector<std::string>> kinds = POOLS;
  for (const std::vector<std::string>& kind :
       {std::vector<std::string>{"--reactor", "dev_poll"}, {"--reactor", "select"}, {"--reactor", "priority"}, {}})
    kinds.push_back(kind);
  return kinds;
}

// The program with an example, and a copy of its configuration directory in which `to` replaces `from`.
class Example
{
public:
  Example(std::vector<std::string> options, const std::string& name, const std::string& from, const std::string& to)
      : name_(name), starter_(arguments(std::move(options), from, to), environment())
  {
  }

  Starter_Process& starter() { return starter_; }

  // The number behind the `count`-th `text` in the log; 0 when it does not appear.
  int number(const std::string& text, unsigned count = 1)
  {
    if (!starter_.wait_for_record(text, count))
      return 0;
    const std::string log = starter_.log();
    return std::stoi(log.substr(log.rfind(text) + text.size()));
  }

  // Ends the process by SIGTERM and compares its log with the records in the README, whose numbers may differ.
  void end()
  {
    starter_.send(SIGTERM);
    EXPECT_EQ(0, starter_.wait_status()) << starter_.log();

    const std::regex number("[0-9]+");
    const std::string log = std::regex_replace(starter_.log(), number, "#");
    std::istringstream readme(read_file(TESTS_EXAMPLE_DIR "/" + name_ + "/README.md"));
    unsigned records = 0;
    for (std::string line; std::getline(readme, line);)
      if (line.compare(0, 4, "    ") == 0 && line[4] != '$') {
        EXPECT_THAT(log, HasSubstr(std::regex_replace(line.substr(4), number, "#") + '\n'));
        ++records;
      }
    EXPECT_LT(1u, records);
  }

private:
  std::vector<std::string> arguments(std::vector<std::string> options, const std::string& from,
                                     const std::string& to) const
  {
    unsigned replaced = 0;
    for (const auto& entry : std::filesystem::directory_iterator(TESTS_EXAMPLE_DIR "/" + name_ + "/conf.d")) {
      std::string conf = read_file(entry.path());
      if (const std::size_t at = conf.find(from); at != std::string::npos) {
        conf.replace(at, from.size(), to);
        ++replaced;
      }
      conf_dir_.write(entry.path().filename(), conf);
    }
    EXPECT_EQ(1u, replaced);

    options.insert(options.end(), {"-f", conf_dir_.path()});
    return options;
  }

  static Start_Options environment()
  {
    Start_Options options;
    options.env["LD_LIBRARY_PATH"] = TESTS_EXAMPLE_LIBRARY_DIR;
    return options;
  }

  const std::string name_;
  const Temp_Dir conf_dir_;
  Starter_Process starter_;
};

// The hang-up is sent when the process is idle, so that it interrupts a single loop where it waits.
static void reload(Starter_Process& starter)
{
  ASSERT_TRUE(starter.wait_until_idle()) << starter.log();
  starter.send(SIGHUP);
}

// ---- Timer

TEST(example_process, timer_beats_before_and_after_a_hang_up)
{
  for (const auto& kind : all_kinds()) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Example timer(kind, "timer", "-i 1000", "-i 400");
    ASSERT_TRUE(timer.starter().wait_for_record("Beat 2.\n")) << timer.starter().log();

    reload(timer.starter());

    EXPECT_TRUE(timer.starter().wait_for_record("The timer beats every 400 ms.\n", 2)) << timer.starter().log();
    EXPECT_TRUE(timer.starter().wait_for_record("Beat 2.\n", 2)) << timer.starter().log();
    EXPECT_EQ(1u, timer.starter().count("The timer has stopped,"));
    timer.end();
    EXPECT_EQ(2u, timer.starter().count("The timer has stopped,"));
  }
}

// The main thread of a pool ends the timer while loop threads are in beats of it.
TEST(example_process, timer_ends_at_any_moment_of_a_pool)
{
  for (const auto& kind : POOLS) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Example timer(kind, "timer", "-i 1000", "-i 1");

    for (unsigned round = 1; round <= 20; ++round) {
      ASSERT_TRUE(timer.starter().wait_for_record("Beat 3.\n", round)) << timer.starter().log();
      timer.starter().send(SIGHUP);
    }
    ASSERT_TRUE(timer.starter().wait_for_record("The timer beats every 1 ms.\n", 21)) << timer.starter().log();

    timer.end();
    EXPECT_EQ(21u, timer.starter().count("The timer has stopped,"));
  }
}

// ---- The examples that take datagrams

// A datagram socket that talks to a port of the loopback interface; waiting for an answer gives up after a minute.
class Datagrams
{
public:
  explicit Datagrams(int port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
  {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }
  ~Datagrams() { close(fd_); }

  Datagrams(const Datagrams&) = delete;
  Datagrams& operator=(const Datagrams&) = delete;

  void send(const std::string& text) const
  {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::send(fd_, text.data(), text.size(), 0));
  }

  std::string receive() const
  {
    pollfd fd{fd_, POLLIN, 0};
    char buf[2048];
    const ssize_t n = poll(&fd, 1, 60000) == 1 ? recv(fd_, buf, sizeof buf, 0) : -1;
    return n > 0 ? std::string(buf, static_cast<std::size_t>(n)) : "";
  }

private:
  const int fd_;
};

// The answer of the active service to `text`, after its acknowledgement.
static std::string active_answer(const Datagrams& client, const std::string& text)
{
  client.send(text);
  EXPECT_EQ("taken\n", client.receive());
  return client.receive();
}

TEST(example_process, active_answers_before_and_after_a_hang_up)
{
  static const std::string ANSWERS = "Active answers on 127.0.0.1:";

  for (const auto& kind : all_kinds()) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Example active(kind, "active", "-p 7008 -t 2", "-p 0 -t 3");

    for (unsigned round = 1; round <= 3; ++round) {
      const int port = active.number(ANSWERS, round);
      ASSERT_NE(0, port) << active.starter().log();
      const Datagrams client(port);
      for (const std::string text : {"hello", "%s %n", "x"})
        EXPECT_EQ(text == "hello" ? "HELLO" : text == "x" ? "X" : "%S %N", active_answer(client, text));

      if (round < 3)
        reload(active.starter());
    }

    active.end();
    EXPECT_EQ(3u, active.starter().count("Active has stopped, 3 datagrams were answered.\n")) << active.starter().log();
  }
}

TEST(example_process, active_ends_its_threads_with_every_hang_up)
{
  Example active(POOLS[0], "active", "-p 7008 -t 2", "-p 0 -t 7");

  for (unsigned round = 1; round <= 5; ++round) {
    ASSERT_TRUE(active.starter().wait_for_record("with 7 threads.\n", round)) << active.starter().log();
    EXPECT_TRUE(active.starter().wait_for_threads(1 + 4 + 7)); // the main thread, the pool, and the service's own
    active.starter().send(SIGHUP);
  }

  ASSERT_TRUE(active.starter().wait_for_record("with 7 threads.\n", 6)) << active.starter().log();
  active.end();
}

TEST(example_process, active_counts_a_single_datagram_in_the_singular)
{
  Example active({}, "active", "-p 7008 -t 2", "-p 0 -t 2");
  const int port = active.number("Active answers on 127.0.0.1:");
  ASSERT_NE(0, port) << active.starter().log();
  EXPECT_EQ("HELLO", active_answer(Datagrams(port), "hello"));

  active.starter().send(SIGTERM);
  EXPECT_EQ(0, active.starter().wait_status()) << active.starter().log();

  EXPECT_EQ(1u, active.starter().count("Active has stopped, 1 datagram was answered.\n")) << active.starter().log();
}

// The threads of the service leave a hang-up to the other threads.
TEST(example_process, active_takes_no_signals_in_its_threads)
{
  Example active({}, "active", "-p 7008 -t 2", "-p 0 -t 2");
  ASSERT_TRUE(active.starter().wait_for_record("is started.")) << active.starter().log();

  const std::vector<pid_t> threads = active.starter().threads();
  ASSERT_EQ(3u, threads.size());
  const auto blocked = [&](std::size_t i) { return signals_in_mask(process_status_field(threads[i], "SigBlk")); };
  // The main thread unblocks its signals after it has started the others. The C library, too, blocks some for moments.
  EXPECT_TRUE(active.starter().wait_until([&] { return blocked(0).empty(); }));
  for (const std::size_t i : {1, 2}) {
    for (const int signo : {SIGHUP, SIGTERM, SIGINT, SIGUSR2, SIGALRM})
      EXPECT_THAT(blocked(i), ::testing::Contains(signo));
    for (const int signo : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
      EXPECT_TRUE(active.starter().wait_until([&] {
        const std::vector<int> signals = blocked(i);
        return std::find(signals.begin(), signals.end(), signo) == signals.end();
      })) << signo;
  }
  active.end();
}

TEST(example_process, stream_logs_lines_before_and_after_a_hang_up)
{
  static const std::string TAKES = "The receiver takes lines on 127.0.0.1:";

  for (const auto& kind : all_kinds()) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Example stream(kind, "stream", "-p 7009", "-p 0");

    for (unsigned round = 1; round <= 3; ++round) {
      const int port = stream.number(TAKES, round);
      ASSERT_NE(0, port) << stream.starter().log();
      const Datagrams client(port);
      client.send("hello\n");
      client.send("no end, %s");
      EXPECT_TRUE(stream.starter().wait_for_record("Line 1: hello\n", round)) << stream.starter().log();
      EXPECT_TRUE(stream.starter().wait_for_record("Line 2: no end, %s\n", round)) << stream.starter().log();

      if (round < 3)
        reload(stream.starter());
    }

    stream.end();
    EXPECT_EQ(3u, stream.starter().count("The receiver has stopped.\nThe printer has stopped, 2 lines.\n"))
        << stream.starter().log();
  }
}

// This is the reason why the example removes the stream in a file of its own.
TEST(example_process, stream_gets_no_module_after_an_error_in_the_same_file)
{
  Start_Options options;
  options.env["LD_LIBRARY_PATH"] = TESTS_EXAMPLE_LIBRARY_DIR;
  const Temp_Dir dir;
  const std::string conf =
      dir.write("services", "remove Pipeline\n" + read_file(TESTS_EXAMPLE_DIR "/stream/conf.d/20-stream.conf"));

  Starter_Process starter({"-f", conf}, options);
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_EQ(0u, starter.count("The receiver takes lines")) << starter.log();
}

// ---- Arguments

TEST(example_process, says_which_arguments_it_takes)
{
  Start_Options options;
  options.env["LD_LIBRARY_PATH"] = TESTS_EXAMPLE_LIBRARY_DIR;
  static const std::string TIMER = "dynamic T Service_Object * timer:_make_Timer()";
  static const std::string ACTIVE = "dynamic A Service_Object * libactive.so:_make_Active()";
  static const std::string STREAM = "stream dynamic S STREAM * libstream.so:_make_Pipeline() "
                                    "{ dynamic R Module * libstream.so:_make_Receiver()";
  const std::tuple<std::string, std::string> cases[] = {
      {TIMER + " \"-i 0\"", "Failed to start the timer: it takes -i MSEC, 1 to 3600000\n"},
      {TIMER + " \"-i 3600001\"", "Failed to start the timer: it takes -i MSEC, 1 to 3600000\n"},
      {TIMER + " \"-i 5x\"", "Failed to start the timer: it takes -i MSEC, 1 to 3600000\n"},
      {TIMER + " \"-i\"", "Failed to start the timer: it takes -i MSEC, 1 to 3600000\n"},
      {ACTIVE + " \"-p 65536\"", "Failed to start active: it takes -p PORT, 0 to 65535, and -t THREADS, 1 to 64\n"},
      {ACTIVE + " \"-t 0\"", "Failed to start active: it takes -p PORT, 0 to 65535, and -t THREADS, 1 to 64\n"},
      {ACTIVE + " \"-x\"", "Failed to start active: it takes -p PORT, 0 to 65535, and -t THREADS, 1 to 64\n"},
      {STREAM + " \"-p 7y\" }", "Failed to start the receiver: it takes -p PORT, 0 to 65535\n"}};

  for (const auto& [directive, record] : cases) {
    SCOPED_TRACE(directive);
    Starter_Process starter({"-S", directive}, options);
    EXPECT_TRUE(starter.wait_for_record(record)) << starter.log();
    EXPECT_TRUE(starter.wait_for_record("is started.")) << starter.log();

    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}
