#include "tests/support/starter_process.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

using ::testing::HasSubstr;

static constexpr int PATIENCE_MSEC = 60000;
static const std::string LISTENS = "Echo listens on 127.0.0.1:";

static sockaddr_in address_of(const char* host, int port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  EXPECT_EQ(1, inet_pton(AF_INET, host, &address.sin_addr));
  return address;
}

static bool can_connect(int port, const char* host)
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = address_of(host, port);
  const bool can = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return can;
}

// A connection to the service; every call of it gives up after a minute.
class Client
{
public:
  explicit Client(int port, const char* host = "127.0.0.1") : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
  {
    const sockaddr_in address = address_of(host, port);
    EXPECT_EQ(0, connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    fcntl(fd_, F_SETFL, O_NONBLOCK);
  }
  ~Client() { close(fd_); }

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Sends `text`, reads as many bytes meanwhile, and returns them.
  std::string exchange(const std::string& text)
  {
    std::string answer;
    for (std::size_t sent = 0; answer.size() < text.size();) {
      pollfd fd{fd_, static_cast<short>(POLLIN | (sent < text.size() ? POLLOUT : 0)), 0};
      if (poll(&fd, 1, PATIENCE_MSEC) != 1)
        break;
      if (fd.revents & POLLOUT)
        sent += send_some(text.data() + sent, text.size() - sent);
      if ((fd.revents & ~POLLOUT) && !receive_some(answer))
        break;
    }
    return answer;
  }

  // Sends and reads nothing, until the other side accepts no more for a while or `limit` bytes are sent.
  std::size_t stuff(std::size_t limit)
  {
    const std::string block(65536, 's');
    std::size_t sent = 0;
    for (pollfd fd{fd_, POLLOUT, 0}; sent < limit && poll(&fd, 1, 200) == 1;)
      sent += send_some(block.data(), block.size());
    return sent;
  }

  void half_close() const { shutdown(fd_, SHUT_WR); }

  // Reads until the other side closes. `ended` tells whether it did.
  std::string read_to_end(bool& ended)
  {
    std::string answer;
    for (pollfd fd{fd_, POLLIN, 0}; (ended = poll(&fd, 1, PATIENCE_MSEC) == 1) && receive_some(answer);)
      ;
    return answer;
  }

private:
  std::size_t send_some(const char* text, std::size_t length) const
  {
    const ssize_t n = send(fd_, text, length, MSG_NOSIGNAL);
    return n > 0 ? static_cast<std::size_t>(n) : 0;
  }

  bool receive_some(std::string& text) const
  {
    char buf[65536];
    const ssize_t n = recv(fd_, buf, sizeof buf, 0);
    if (n > 0)
      text.append(buf, static_cast<std::size_t>(n));
    return n > 0 || (n < 0 && errno == EAGAIN);
  }

  const int fd_;
};

// The program finds the library of the example.
static Start_Options echo_environment()
{
  Start_Options options;
  options.env["LD_LIBRARY_PATH"] = TESTS_ECHO_DIR;
  return options;
}

// The program with the echo service from the configuration directory of the example, at a free port.
class Echo_Process
{
public:
  explicit Echo_Process(const std::vector<std::string>& options) : starter_(arguments(options), echo_environment()) {}

  Starter_Process& starter() { return starter_; }

  // The port in the `count`-th record of the service about its port; 0 when there is no such record.
  int port(unsigned count = 1)
  {
    if (!starter_.wait_for_record(LISTENS, count))
      return 0;
    const std::string log = starter_.log();
    return std::stoi(log.substr(log.rfind(LISTENS) + LISTENS.size()));
  }

private:
  std::vector<std::string> arguments(std::vector<std::string> options) const
  {
    std::string conf = read_file(TESTS_ECHO_CONF);
    const std::size_t at = conf.find("-p 7007");
    EXPECT_NE(std::string::npos, at);
    conf_dir_.write("conf.d/echo.conf", conf.replace(at, 7, "-p 0"));

    options.insert(options.end(), {"-f", conf_dir_ / "conf.d"});
    return options;
  }

  const Temp_Dir conf_dir_;
  Starter_Process starter_;
};

static std::string letters(std::size_t length, unsigned seed)
{
  std::string text(length, '\0');
  for (char& c : text) {
    seed = seed * 1103515245 + 12345;
    c = static_cast<char>(seed >> 16);
  }
  return text;
}

static const std::vector<std::vector<std::string>> KINDS = {{"--reactor", "tp", "--threads", "4"},
                                                            {"--reactor", "dev_poll", "--threads", "4"},
                                                            {"--reactor", "dev_poll"},
                                                            {"--reactor", "select"},
                                                            {"--reactor", "priority"},
                                                            {}};

TEST(echo_process, answers_64_clients_at_once)
{
  for (const auto& kind : KINDS) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Echo_Process echo(kind);
    const int port = echo.port();
    ASSERT_NE(0, port) << echo.starter().log();

    unsigned failed[64] = {};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 64; ++i)
      threads.emplace_back([port, i, &failed] {
        Client client(port);
        for (const std::size_t length : {std::size_t(1), std::size_t(17), std::size_t(16384), std::size_t(100000)}) {
          const std::string text = letters(length + i, i);
          failed[i] += client.exchange(text) != text;
        }
      });
    for (std::thread& thread : threads)
      thread.join();
    for (unsigned i = 0; i < 64; ++i)
      EXPECT_EQ(0u, failed[i]) << "client " << i;

    echo.starter().send(SIGTERM);
    EXPECT_EQ(0, echo.starter().wait_status()) << echo.starter().log();
  }
}

TEST(echo_process, sends_everything_back_to_a_client_that_has_closed_its_side)
{
  Echo_Process echo({"--reactor", "tp", "--threads", "4"});
  const int port = echo.port();
  ASSERT_NE(0, port) << echo.starter().log();

  Client client(port);
  const std::size_t sent = client.stuff(8 << 20);
  client.half_close();

  bool ended = false;
  EXPECT_EQ(std::string(sent, 's'), client.read_to_end(ended));
  EXPECT_TRUE(ended);

  Client idle(port);
  idle.half_close();
  EXPECT_EQ("", idle.read_to_end(ended));
  EXPECT_TRUE(ended);
}

// There are more clients than loop threads, so the test would fail if a thread waited for a client or stored all the
// bytes that the client does not read.
TEST(echo_process, is_not_held_up_by_clients_that_do_not_read)
{
  static constexpr std::size_t LIMIT = 64 << 20; // more than the sockets on the way can hold

  for (const auto& kind : KINDS) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Echo_Process echo(kind);
    const int port = echo.port();
    ASSERT_NE(0, port) << echo.starter().log();

    std::vector<std::unique_ptr<Client>> silent;
    std::vector<std::size_t> sent;
    for (unsigned i = 0; i < 5; ++i) {
      silent.push_back(std::make_unique<Client>(port));
      sent.push_back(silent.back()->stuff(LIMIT));
      EXPECT_GT(LIMIT, sent.back());
    }

    Client client(port);
    const std::string text = letters(300000, 1);
    EXPECT_TRUE(text == client.exchange(text));

    bool ended = false;
    silent[0]->half_close();
    EXPECT_TRUE(std::string(sent[0], 's') == silent[0]->read_to_end(ended));
    EXPECT_TRUE(ended);
    silent.pop_back(); // this client leaves without having read anything
    EXPECT_TRUE(text == client.exchange(text));

    echo.starter().send(SIGTERM);
    EXPECT_EQ(0, echo.starter().wait_status()) << echo.starter().log();
  }
}

TEST(echo_process, ends_its_clients_with_the_service)
{
  for (const auto& kind : KINDS) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Echo_Process echo(kind);
    const int port = echo.port();
    ASSERT_NE(0, port) << echo.starter().log();
    Client first(port);
    Client second(port);
    Client third(port);
    for (Client* const client : {&first, &second, &third})
      EXPECT_EQ("hello", client->exchange("hello"));

    echo.starter().send(SIGTERM);

    bool ended = false;
    for (Client* const client : {&first, &second, &third}) {
      EXPECT_EQ("", client->read_to_end(ended));
      EXPECT_TRUE(ended);
    }
    EXPECT_EQ(0, echo.starter().wait_status()) << echo.starter().log();
    EXPECT_THAT(echo.starter().log(), HasSubstr("Echo has stopped, 3 clients were connected.\n"));
  }
}

TEST(echo_process, counts_a_single_client_in_the_singular)
{
  Echo_Process echo({});
  const int port = echo.port();
  ASSERT_NE(0, port) << echo.starter().log();
  Client client(port);
  EXPECT_EQ("hello", client.exchange("hello"));

  echo.starter().send(SIGTERM);

  EXPECT_EQ(0, echo.starter().wait_status()) << echo.starter().log();
  EXPECT_THAT(echo.starter().log(), HasSubstr("Echo has stopped, 1 client was connected.\n"));
}

TEST(echo_process, gives_its_port_back_when_it_stops)
{
  Echo_Process first({"--reactor", "tp", "--threads", "4"});
  const int port = first.port();
  ASSERT_NE(0, port) << first.starter().log();
  Client client(port);
  EXPECT_EQ("hello", client.exchange("hello"));

  first.starter().send(SIGTERM);
  EXPECT_EQ(0, first.starter().wait_status()) << first.starter().log();

  const Start_Options options = echo_environment();
  Starter_Process second({"-S", "dynamic Again Service_Object * echo:_make_Echo() \"-p " + std::to_string(port) + '"'},
                         options);
  EXPECT_TRUE(second.wait_for_record(LISTENS + std::to_string(port) + '.')) << second.log();
}

static const char USAGE[] = "Failed to start echo: it takes -a ADDRESS, -p PORT and -s PORT, 0 to 65535, and "
                            "-d SECONDS, 0 to 3600\n";

TEST(echo_process, refuses_an_address_and_a_port_that_it_cannot_have)
{
  const Start_Options options = echo_environment();
  Echo_Process running({});
  const std::string taken = std::to_string(running.port());
  ASSERT_NE("0", taken) << running.starter().log();
  const std::tuple<std::string, std::string> cases[] = {
      {"-p " + taken, "Failed to listen on 127.0.0.1:" + taken + ", errno=98, Address already in use\n"},
      {"-p 65536", USAGE},
      {"-p 7x", USAGE},
      {"-a 192.0.2.1 -p " + taken,
       "Failed to listen on 192.0.2.1:" + taken + ", errno=99, Cannot assign requested address\n"},
      {"-a localhost", USAGE},
      {"-a 127.0.0", USAGE},
      {"-p", USAGE},
      {"-s 65536", USAGE},
      {"-d 3601", USAGE},
      {"-d", USAGE},
      {"-p 0 -s " + taken, "Failed to tell the status at 127.0.0.1:" + taken + ", errno=98, Address already in use\n"},
      {"-q", USAGE}};

  for (const auto& [arguments, record] : cases) {
    SCOPED_TRACE(arguments);
    Starter_Process starter({"-S", "dynamic Echo Service_Object * echo:_make_Echo() \"" + arguments + '"'}, options);
    EXPECT_TRUE(starter.wait_for_record(record)) << starter.log();

    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}

TEST(echo_process, listens_on_the_address_that_it_is_given)
{
  const Start_Options options = echo_environment();
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"127.0.0.2", "127.0.0.2", "127.0.0.1"}, {"0.0.0.0", "127.0.0.1", nullptr}, {"0.0.0.0", "127.0.0.3", nullptr}};

  for (const auto& [address, reachable, other] : cases) {
    SCOPED_TRACE(address);
    Starter_Process starter(
        {"-S", "dynamic Echo Service_Object * echo:_make_Echo() \"-a " + std::string(address) + " -p 0\""}, options);
    const std::string listens = "Echo listens on " + std::string(address) + ':';
    ASSERT_TRUE(starter.wait_for_record(listens)) << starter.log();
    const std::string log = starter.log();
    const int port = std::stoi(log.substr(log.find(listens) + listens.size()));

    EXPECT_EQ("hello", Client(port, reachable).exchange("hello"));
    if (other) {
      EXPECT_FALSE(can_connect(port, other));
    }
  }
}

// The service as the directives after its own leave it.
class Directed_Echo
{
public:
  Directed_Echo(const std::string& arguments, const std::vector<std::string>& directives)
      : starter_(options(arguments, directives), echo_environment())
  {
    EXPECT_TRUE(starter_.wait_for_record("is started.")) << starter_.log();
  }

  Starter_Process& starter() { return starter_; }
  int port() { return port_after(LISTENS); }
  int status_port() { return port_after("Echo tells its status on 127.0.0.1:"); }

private:
  static std::vector<std::string> options(const std::string& arguments, const std::vector<std::string>& directives)
  {
    std::vector<std::string> all = {"-S", "dynamic Echo Service_Object * echo:_make_Echo() \"-p 0 " + arguments + '"'};
    for (const std::string& directive : directives)
      all.insert(all.end(), {"-S", directive});
    return all;
  }

  int port_after(const std::string& record)
  {
    const std::string log = starter_.log();
    const std::size_t at = log.find(record);
    return at == std::string::npos ? 0 : std::stoi(log.substr(at + record.size()));
  }

  Starter_Process starter_;
};

static std::string word_of(int status_port)
{
  Client client(status_port);
  bool ended = false;
  return client.read_to_end(ended);
}

TEST(echo_process, tells_whether_it_takes_clients)
{
  Directed_Echo working("-s 0", {});
  Directed_Echo draining("-s 0 -d 3600", {"suspend Echo"});
  Directed_Echo resumed("-s 0 -d 0", {"suspend Echo", "resume Echo"});

  EXPECT_EQ("up ready\n", word_of(working.status_port())) << working.starter().log();
  EXPECT_EQ("drain\n", word_of(draining.status_port())) << draining.starter().log();
  EXPECT_EQ("up ready\n", word_of(resumed.status_port())) << resumed.starter().log();
}

TEST(echo_process, serves_clients_until_the_time_to_drain_is_over)
{
  Directed_Echo draining("-s 0 -d 3600", {"suspend Echo"});
  Directed_Echo drained("-s 0 -d 0", {"suspend Echo"});
  Directed_Echo resumed("-s 0 -d 0", {"suspend Echo", "resume Echo"});

  EXPECT_EQ("hello", Client(draining.port()).exchange("hello"));
  EXPECT_TRUE(wait_until([&] { return !can_connect(drained.port(), "127.0.0.1"); }));
  EXPECT_EQ("drain\n", word_of(drained.status_port()));
  EXPECT_EQ("hello", Client(resumed.port()).exchange("hello"));
}

// After a hang-up the configurator processes its files again, and a new service replaces the one of the same name. This
// happens in the signal handler, so the reactor must not be dispatching at that moment: no client reads or writes
// meanwhile.
TEST(echo_process, makes_way_for_a_new_service_on_a_hang_up)
{
  for (const auto& kind : KINDS) {
    SCOPED_TRACE(::testing::PrintToString(kind));
    Echo_Process echo(kind);
    int port = echo.port();
    ASSERT_NE(0, port) << echo.starter().log();

    for (unsigned round = 1; round <= 3; ++round) {
      Client busy(port);
      EXPECT_LT(0u, busy.stuff(8 << 20)); // the service has something left to send
      Client idle(port);
      EXPECT_EQ("hello", idle.exchange("hello"));
      ASSERT_TRUE(echo.starter().wait_until_idle());
      echo.starter().send(SIGHUP);
      port = echo.port(round + 1);
      ASSERT_NE(0, port) << echo.starter().log();
      ASSERT_TRUE(echo.starter().wait_until_idle());

      bool ended = false;
      (void)busy.read_to_end(ended); // these bytes were on the way before
      EXPECT_TRUE(ended);
      EXPECT_EQ("", idle.read_to_end(ended));
      EXPECT_TRUE(ended);
    }

    EXPECT_EQ("hello", Client(port).exchange("hello"));
    EXPECT_EQ(3u, echo.starter().count("Echo has stopped, 2 clients were connected.\n")) << echo.starter().log();
    echo.starter().send(SIGTERM);
    EXPECT_EQ(0, echo.starter().wait_status()) << echo.starter().log();
  }
}
