// Two instances of the echo service on two machines, behind haproxy, are restarted and reloaded one after the other by
// starter-rolling, while five clients make 500 requests a second. No request may be lost. STARTER_CLUSTER_RUNS is the
// number of times that each happens.

#include "tests/cluster/cluster.h"
#include "tests/cluster/cluster_needs.h"
#include "tests/cluster/prober.h"
#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <signal.h>

static constexpr unsigned INSTANCES = 2;
static constexpr unsigned CLIENTS = 5;
static constexpr unsigned FIRST_CHANGED_PORT = 7100;
static const char HAPROXY_HOST[] = "198.51.100.100"; // the test itself

static unsigned runs()
{
  const char* const text = std::getenv("STARTER_CLUSTER_RUNS");
  return text && *text ? static_cast<unsigned>(std::atoi(text)) : 1;
}

/// haproxy with the configuration of the project, in the network of the test. The destructor ends it.
class Balancer
{
public:
  explicit Balancer(const Temp_Dir& dir) : socket_(dir / "admin.sock"), pid_file_(dir / "haproxy.pid")
  {
    std::string configuration = read_file(TESTS_HAPROXY_CONFIGURATION);
    configuration = std::regex_replace(configuration, std::regex("/run/haproxy/admin.sock"), socket_);
    configuration =
        std::regex_replace(configuration, std::regex("bind .*:"), std::string("bind ") + HAPROXY_HOST + ':');
    (void)output_of("haproxy -D -p " + pid_file_ + " -f " + dir.write("haproxy.cfg", configuration));
  }

  ~Balancer()
  {
    const int pid = std::atoi(read_file(pid_file_).c_str());
    if (pid > 0)
      kill(pid, SIGTERM);
  }

  Balancer(const Balancer&) = delete;
  Balancer& operator=(const Balancer&) = delete;

  const std::string& socket() const { return socket_; }

  std::string statistics() const { return run("echo 'show stat' | nc -NU " + socket_).output; }

  // Whether the checks of both instances have succeeded. Until then, they are taken for "UP 1/2".
  bool has_all_instances() const
  {
    return std::regex_search(statistics(), std::regex("echo,one,.*,UP,.*\necho,two,.*,UP,"));
  }

private:
  const std::string socket_;
  const std::string pid_file_;
};

class rolling : public testing::Test
{
protected:
  void SetUp() override
  {
    NEEDS(!missing_for_cluster(), missing_for_cluster());
    NEEDS(has_tool("haproxy"), "haproxy");
    packages_ = std::make_unique<Debian_Packages>();
    cluster_ = std::make_unique<Cluster>(std::vector<std::string>{
        packages_->file("starter"), packages_->file("libstarter-metrics0"), packages_->file("starter-companions")});
    cluster_->add_file("/usr/lib/libecho.so", read_file(TESTS_ECHO_LIBRARY));
    cluster_->add_file("/etc/starter/echo.d/echo.conf", CONFIGURATION);
    for (unsigned i = 0; i < INSTANCES; ++i) {
      ASSERT_NO_FATAL_FAILURE(cluster_->boot(i));
      ASSERT_TRUE(cluster_->machine(i).succeeds(
          "ln -s /usr/share/starter/companions/control.conf /etc/starter/echo.d/00-control.conf && "
          "systemctl start starter@echo"));
    }
    write_wrapper();

    balancer_ = std::make_unique<Balancer>(dir_);
    ASSERT_TRUE(wait_until([this] { return balancer_->has_all_instances(); })) << balancer_->statistics();
    for (unsigned i = 0; i < CLIENTS; ++i)
      clients_.push_back(std::make_unique<Prober>(HAPROXY_HOST, Cluster::PORT));
  }

  void TearDown() override
  {
    clients_.clear();
    if (HasFailure() && balancer_) {
      std::cerr << balancer_->statistics();
      for (unsigned i = 0; i < INSTANCES; ++i)
        std::cerr << cluster_->machine(i).run("systemctl status starter@echo; journalctl -n 30 -u starter@echo")
                  << '\n';
    }
    balancer_.reset();
  }

  // Does one thing to both instances, one after the other.
  void roll(const std::string& action) const
  {
    const Ended ended = run("sh " TESTS_STARTER_ROLLING " -e " + wrapper() + " -s " + balancer_->socket() + ' ' +
                            action + " echo Echo one=0 two=1");
    ASSERT_EQ(0, ended.status) << ended.output;
    EXPECT_THAT(ended.output, testing::ContainsRegex("one: up\ntwo: taking it out(.|\n)*two: up\n$"));
  }

  void expect_that_no_request_was_lost(const std::string& what) const
  {
    const Clock::time_point now = Clock::now();
    std::size_t requests = 0;
    for (const auto& client : clients_) {
      EXPECT_TRUE(wait_until([&] { return client->has_answer_since(now); }));
      EXPECT_EQ(0u, client->wrong());
      EXPECT_EQ(0u, client->too_long());
      const std::vector<Prober::Result> results = client->results();
      requests += results.size();
      EXPECT_EQ(0,
                std::count_if(results.begin(), results.end(), [](const Prober::Result& one) { return !one.answered; }))
          << "requests were lost";
    }
    std::printf("%s: %u runs, %zu requests\n", what.c_str(), runs(), requests);
  }

  std::string show(unsigned node, const std::string& property) const
  {
    return cluster_->machine(node).run("systemctl show --value --property " + property + " starter@echo");
  }

  // Another service of the component listens on `port` from the next reload on.
  void add_service(unsigned port) const
  {
    const std::string text =
        CONFIGURATION +
        std::string("dynamic Other Service_Object * /usr/lib/libecho.so:_make_Echo() \"-a 0.0.0.0 -p ") +
        std::to_string(port) + "\"\n";
    for (unsigned i = 0; i < INSTANCES; ++i)
      ASSERT_TRUE(cluster_->machine(i).succeeds("cp " + cluster_->machine(i).dir().write("conf", text) +
                                                " /etc/starter/echo.d/echo.conf"));
  }

  static bool answers(unsigned node, unsigned port)
  {
    return run("echo hello | nc -N 198.51.100." + std::to_string(node + 1) + ' ' + std::to_string(port)).output ==
           "hello\n";
  }

private:
  static constexpr char CONFIGURATION[] =
      "dynamic Echo Service_Object * /usr/lib/libecho.so:_make_Echo() \"-a 0.0.0.0 -p 7007 -s 7008 -d 1\"\n";

  std::string wrapper() const { return dir_ / "enter"; }

  // Takes the place of ssh: its first argument is the number of the machine.
  void write_wrapper() const
  {
    std::string text = "#!/bin/sh\ncase $1 in\n";
    for (unsigned i = 0; i < INSTANCES; ++i)
      text += std::to_string(i) + ") pid=" + std::to_string(cluster_->machine(i).pid()) + " ;;\n";
    dir_.write("enter", text + "esac\nshift\nexec nsenter --target $pid --all \"$@\"\n");
    (void)output_of("chmod 755 " + wrapper());
  }

  Temp_Dir dir_;
  std::unique_ptr<Debian_Packages> packages_;

protected:
  std::unique_ptr<Cluster> cluster_;
  std::unique_ptr<Balancer> balancer_;
  std::vector<std::unique_ptr<Prober>> clients_;
};

TEST_F(rolling, restarts_without_a_request_that_is_lost)
{
  for (unsigned n = 0; n < runs(); ++n) {
    SCOPED_TRACE("run " + std::to_string(n));
    const std::vector<std::string> before = {show(0, "MainPID"), show(1, "MainPID")};
    for (unsigned i = 0; i < INSTANCES; ++i) // systemd refuses the sixth start within ten seconds
      ASSERT_TRUE(cluster_->machine(i).succeeds("systemctl reset-failed starter@echo"));
    ASSERT_NO_FATAL_FAILURE(roll("restart"));
    for (unsigned i = 0; i < INSTANCES; ++i) {
      EXPECT_EQ("active", show(i, "ActiveState"));
      EXPECT_NE(before[i], show(i, "MainPID"));
    }
  }
  expect_that_no_request_was_lost("rolling restart");
}

TEST_F(rolling, changes_the_configuration_without_a_request_that_is_lost)
{
  for (unsigned n = 0; n < runs(); ++n) {
    SCOPED_TRACE("run " + std::to_string(n));
    const std::vector<std::string> before = {show(0, "MainPID"), show(1, "MainPID")};
    ASSERT_NO_FATAL_FAILURE(add_service(FIRST_CHANGED_PORT + n));
    ASSERT_NO_FATAL_FAILURE(roll("reload"));
    for (unsigned i = 0; i < INSTANCES; ++i) {
      EXPECT_EQ(before[i], show(i, "MainPID"));
      EXPECT_TRUE(answers(i, FIRST_CHANGED_PORT + n));
    }
  }
  expect_that_no_request_was_lost("rolling change of the configuration");
}
