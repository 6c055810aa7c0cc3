// The example active acknowledges a datagram before it does the work. The tests let hang-ups end the service while a
// client sends, and hold what was acknowledged against what was done.

#include "tests/support/loops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
// A client that sends datagrams from a thread of its own, and counts what comes back. It starts to send when it is told
// a port.
class Client
{
public:
  Client() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), thread_([this] { run(); }) {}
  ~Client()
  {
    finish();
    close(fd_);
  }

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void send_to(int port) { port_ = port; }

  // Stop sending, and take the answers that are there. The service has ended by then.
  void finish()
  {
    finished_ = true;
    if (thread_.joinable())
      thread_.join();
  }

  unsigned acknowledged() const { return acknowledged_; }
  unsigned done() const { return done_; }

private:
  void run()
  {
    while (!finished_) {
      for (int i = 0; i < 4; ++i)
        send();
      while (receive(1))
        ;
    }
    while (receive(0))
      ;
  }

  void send() const
  {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (port_ != 0)
      (void)sendto(fd_, "work", 4, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  bool receive(int timeout_msec)
  {
    pollfd fd{fd_, POLLIN, 0};
    char buf[16];
    if (poll(&fd, 1, timeout_msec) != 1)
      return false;

    const ssize_t n = recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
    const std::string text(buf, n > 0 ? static_cast<std::size_t>(n) : 0);
    acknowledged_ += text == "taken\n";
    done_ += text == "WORK";
    return n >= 0;
  }

  const int fd_;
  std::atomic<unsigned> acknowledged_{0};
  std::atomic<unsigned> done_{0};
  std::atomic<int> port_{0};
  std::atomic<bool> finished_{false};
  std::thread thread_;
};

// Wait until the service is there for the `count`-th time. Returns its port, or 0.
int wait_for_port(Starter_Process& starter, unsigned count)
{
  static const std::string ANSWERS = "Active answers on 127.0.0.1:";
  if (!starter.wait_for_record(" threads.\n", count))
    return 0;

  const std::string log = starter.log();
  return std::stoi(log.substr(log.rfind(ANSWERS) + ANSWERS.size()));
}

Loop loop_named(const std::string& name)
{
  return *std::find_if(std::begin(LOOPS), std::end(LOOPS), [&](const Loop& loop) { return loop.name == name; });
}

class hand_over_stress : public testing::TestWithParam<Loop>
{
};
} // namespace

// The preloaded library lets many hang-ups meet a callback between its datagram and the queue.
TEST_P(hand_over_stress, does_all_that_it_has_acknowledged)
{
  enum { RELOADS = 50 };
  Start_Options options;
  options.env["LD_LIBRARY_PATH"] = TESTS_EXAMPLE_LIBRARY_DIR;
  options.preload = {preload_library("slow_datagrams")};
  const Temp_Dir dir;
  std::vector<std::string> args = GetParam().args;
  args.insert(args.end(), {"-f", dir.write("active.conf", "dynamic Active Service_Object * libactive.so:_make_Active() "
                                                          "\"-p 0 -t 2\"\n")});
  Starter_Process starter(args, options);
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

  Client client;
  for (unsigned i = 1; i <= RELOADS; ++i) {
    SCOPED_TRACE(i);
    const int port = wait_for_port(starter, i);
    ASSERT_NE(0, port) << starter.log();
    const unsigned before = client.acknowledged();
    client.send_to(port);
    ASSERT_TRUE(starter.wait_until([&] { return client.acknowledged() > before; })) << starter.log();
    // A hang-up during a reload of a pool may cost it a thread.
    ASSERT_TRUE(GetParam().threads == 1 || starter.wait_for_event_loop()) << starter.log();
    starter.send(SIGHUP);
  }
  ASSERT_NE(0, wait_for_port(starter, RELOADS + 1)) << starter.log();
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();
  client.finish();

  EXPECT_LE(static_cast<unsigned>(RELOADS), client.acknowledged());
  EXPECT_EQ(client.acknowledged(), client.done());
}

INSTANTIATE_TEST_SUITE_P(loops, hand_over_stress, testing::Values(loop_named("default"), loop_named("tp_4")),
                         testing::PrintToStringParamName());
