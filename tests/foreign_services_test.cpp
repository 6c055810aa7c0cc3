// Services of the framework itself, which were not written for the program. The guide doc/foreign-services.md tells
// what the tests show.

#include "tests/support/loops.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

static std::string foreign(const std::string& name, const std::string& factory, const std::string& arguments,
                           const std::string& library = "libnetsvcs-7.0.8.so")
{
  return "dynamic " + name + " Service_Object * " + library + ":_make_" + factory + "() \"" + arguments + "\"\n";
}

static sockaddr_in loopback(int port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A port of the loopback interface that nobody uses.
static int free_port()
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), size));
  EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
  close(fd);
  return ntohs(address.sin_port);
}

// Returns the answer of a server on `port` to `question`.
static std::string answer_of(int port, const std::string& question)
{
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  EXPECT_EQ(static_cast<ssize_t>(question.size()), send(fd, question.data(), question.size(), 0));
  char answer[256];
  const ssize_t n = recv(fd, answer, sizeof answer, 0);
  close(fd);
  return n > 0 ? std::string(answer, static_cast<std::size_t>(n)) : "";
}

TEST(foreign_services, run_and_reload_under_every_reactor)
{
  static const std::string UP = "starting up Time Server at port";
  const Temp_Dir dir;
  const std::string conf = dir.write("time.conf", foreign("Time", "ACE_TS_Server_Acceptor", "-p 0"));

  for (const Loop& loop : LOOPS) {
    SCOPED_TRACE(loop.name);
    std::vector<std::string> args = loop.args;
    args.insert(args.end(), {"-f", conf});
    Starter_Process starter(args);
    ASSERT_TRUE(wait_for_loop(starter, loop)) << starter.log();
    EXPECT_EQ(1u, starter.count(UP)) << starter.log();

    starter.send(SIGHUP);

    EXPECT_TRUE(starter.wait_for_record(UP, 2)) << starter.log();
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
  }
}

TEST(foreign_services, take_faults_for_a_memory_mapped_pool)
{
  const Temp_Dir dir;
  Starter_Process starter({"-S",
                           foreign("Clerk", "ACE_TS_Clerk_Processor",
                                   "-h 127.0.0.1:" + std::to_string(free_port()) + " -p " + dir / "pool"),
                           "-S", dynamic_directive("Crash", "crash", "_make_Crash", "page")});

  EXPECT_EQ(-SIGSEGV, starter.wait_status()) << starter.log();
  EXPECT_EQ(0u, starter.count("the back trace:")) << starter.log();
}

TEST(foreign_services, end_the_process_at_a_function_that_no_library_has)
{
  Starter_Process starter({"-S", dynamic_directive("Incomplete", "incomplete", "_make_Incomplete")});

  EXPECT_EQ(127, starter.wait_status()) << starter.log();
  EXPECT_EQ(1u, starter.count("undefined symbol: function_that_nobody_defines")) << starter.log();
}

TEST(foreign_services, redirect_the_records_of_the_program)
{
  const Temp_Dir dir;
  const std::string file = dir / "records";
  Starter_Process starter({"-S", foreign("Logger", "ACE_Logging_Strategy", "-f OSTREAM -s " + file, "ACE")});

  EXPECT_TRUE(starter.wait_until([&] { return read_file(file).find(") is started.\n") != std::string::npos; }));
  EXPECT_EQ("", starter.log());
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status());
}

TEST(foreign_services, cannot_ask_for_a_reload_by_the_service_manager)
{
  const int port = free_port();
  const Temp_Dir dir;
  const std::string conf =
      dir.write("x.conf", dynamic_directive("Talker", "talker", "_make_Talker") + '\n' +
                              foreign("Manager", "ACE_Service_Manager", "-p " + std::to_string(port), "ACE"));
  Starter_Process starter({"-f", conf});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  EXPECT_THAT(answer_of(port, "reconfigure\n"), testing::HasSubstr("done"));

  EXPECT_TRUE(starter.wait_until_idle());
  EXPECT_EQ(1u, starter.count("talker init.")) << starter.log();
  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}
