// The resource agent in a machine with systemd, called as Pacemaker calls it. There is no cluster.

#include "tests/cluster/cluster.h"
#include "tests/cluster/cluster_needs.h"
#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/starter_process.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

using testing::HasSubstr;

// The exit status of an action, as the standard for agents numbers them.
enum Status { SUCCESS = 0, GENERIC = 1, UNIMPLEMENTED = 3, INSTALLED = 5, CONFIGURED = 6, NOT_RUNNING = 7 };

static const char AGENT[] = "/usr/lib/ocf/resource.d/starter/component";

class component_agent : public testing::Test
{
protected:
  static void SetUpTestSuite()
  {
    if (missing_for_cluster())
      return;
    packages_ = std::make_unique<Debian_Packages>();
    cluster_ = std::make_unique<Cluster>(
        std::vector<std::string>{packages_->file("starter"), packages_->file("starter-pacemaker")});
    cluster_->boot(0);
  }

  static void TearDownTestSuite()
  {
    cluster_.reset();
    packages_.reset();
  }

  void SetUp() override
  {
    NEEDS(!missing_for_cluster(), missing_for_cluster());
    since_ = run("date +@%s.%N");
    configure(dynamic_directive("Talker", "talker", "_make_Talker"));
  }

  void TearDown() override
  {
    if (!cluster_)
      return;
    if (HasFailure())
      std::cerr << log();
    (void)run(
        "systemctl stop --no-block starter@demo; systemctl kill -s KILL starter@demo; systemctl stop starter@demo;"
        " systemctl disable starter@demo; rm -rf /run/starter-pacemaker /run/systemd/system/starter@demo.service.d"
        " /usr/local/bin/starterctl /etc/starter; systemctl daemon-reload; systemctl reset-failed");
  }

  static std::string run(const std::string& command) { return cluster_->machine(0).run(command); }

  // The component demo gets one configuration file.
  static void configure(const std::string& directives)
  {
    const Systemd_Machine& machine = cluster_->machine(0);
    (void)run("mkdir -p /etc/starter/demo.d && cp " + machine.dir().write("conf", directives) +
              " /etc/starter/demo.d/demo.conf && chmod 644 /etc/starter/demo.d/demo.conf");
  }

  static std::string call(const std::string& action, const std::string& environment = "")
  {
    return "env OCF_ROOT=/usr/lib/ocf OCF_RESOURCE_INSTANCE=demo OCF_RESKEY_component=demo"
           " OCF_RESKEY_CRM_meta_timeout=60000 OCF_RESKEY_CRM_meta_interval=10000 " +
           environment + ' ' + AGENT + ' ' + action;
  }

  // Calls the agent. The output goes to `output`.
  static int act(const std::string& action, const std::string& environment = "", std::string* output = nullptr)
  {
    const std::string text = run(call(action, environment) + " 2>&1; echo \"status $?\"");
    const std::size_t at = text.rfind("status ");
    if (output)
      *output = text.substr(0, at);
    return std::stoi(text.substr(at + 7));
  }

  static std::string show(const std::string& property)
  {
    return run("systemctl show --value -p " + property + " starter@demo");
  }

  std::string log() const { return run("journalctl --sync; journalctl -u starter@demo -o cat --since " + since_); }

  // The command starterctl answers with `status`, on a socket as the companion control has it.
  static void pretend_health(int status)
  {
    (void)run("printf '#!/bin/sh\\n[ \"$*\" = \"-c demo health\" ] || exit 9\\necho the text\\nexit " +
              std::to_string(status) + "\\n' >/usr/local/bin/starterctl; chmod +x /usr/local/bin/starterctl");
    (void)run("systemctl is-active -q listener || systemd-run -q -u listener nc -lkU /run/starter/demo/control.socket");
    EXPECT_TRUE(wait_until([] { return run("test -S /run/starter/demo/control.socket && echo yes") == "yes"; }));
  }

  std::string since_; ///< when the test began, for the journal
  static std::unique_ptr<Debian_Packages> packages_;
  static std::unique_ptr<Cluster> cluster_;
};

std::unique_ptr<Debian_Packages> component_agent::packages_;
std::unique_ptr<Cluster> component_agent::cluster_;

TEST_F(component_agent, passes_the_tester_of_its_kind)
{
  const std::string output =
      run(std::string("ocf-tester -n demo -o component=demo ") + AGENT + " 2>&1; echo \"status $?\"");
  EXPECT_THAT(output, testing::EndsWith(std::string(AGENT) + " passed all tests\nstatus 0")) << output;
  EXPECT_THAT(output, testing::Not(HasSubstr("does not support the reload")));
}

TEST_F(component_agent, starts_a_component_and_returns_when_it_is_ready)
{
  configure(dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", "init work 1500"));
  EXPECT_EQ(NOT_RUNNING, act("monitor"));

  EXPECT_EQ(SUCCESS, act("start"));

  EXPECT_EQ("active", show("ActiveState"));
  EXPECT_THAT(log(), HasSubstr("lingered init.\n"));
  EXPECT_EQ(SUCCESS, act("monitor"));
}

TEST_F(component_agent, says_that_a_component_does_not_start)
{
  (void)run("rm -r /etc/starter/demo.d");

  std::string output;
  EXPECT_EQ(GENERIC, act("start", "", &output));

  EXPECT_THAT(output, HasSubstr("starter@demo.service does not start"));
  EXPECT_EQ(NOT_RUNNING, act("monitor"));
}

TEST_F(component_agent, leaves_restarts_to_pacemaker_however_many_there_are)
{
  for (int i = 0; i < 8; ++i) { // systemd would refuse the sixth within a minute
    ASSERT_EQ(SUCCESS, act("start")) << i;
    EXPECT_EQ("no", show("Restart"));
    (void)run("systemctl kill -s KILL starter@demo");
    ASSERT_TRUE(wait_until([] { return show("ActiveState") == "failed"; }));
    EXPECT_EQ(NOT_RUNNING, act("monitor"));
  }
}

// Pacemaker probes a machine before it starts anything there.
TEST_F(component_agent, prepares_the_unit_when_it_probes)
{
  EXPECT_EQ(NOT_RUNNING, act("monitor"));
  EXPECT_EQ("always", show("Restart"));

  EXPECT_EQ(NOT_RUNNING, act("monitor", "OCF_RESKEY_CRM_meta_interval=0"));
  EXPECT_EQ("no", show("Restart"));
}

TEST_F(component_agent, stops_a_component_in_order)
{
  configure(dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", "fini work 1500"));
  ASSERT_EQ(SUCCESS, act("start"));

  EXPECT_EQ(SUCCESS, act("stop"));

  EXPECT_THAT(log(), HasSubstr("lingered fini."));
  EXPECT_EQ("success", show("Result"));
  EXPECT_EQ(SUCCESS, act("stop"));
}

// The unit itself would wait for 30 seconds.
TEST_F(component_agent, kills_a_component_that_does_not_stop_within_three_quarters_of_the_time)
{
  configure(dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", "fini hang"));
  ASSERT_EQ(SUCCESS, act("start"));

  EXPECT_EQ(SUCCESS, act("stop", "OCF_RESKEY_CRM_meta_timeout=4000"));

  EXPECT_THAT(log(), HasSubstr("linger fini."));
  EXPECT_EQ("signal", show("Result")); // and not "timeout"
  EXPECT_EQ(NOT_RUNNING, act("monitor"));
}

TEST_F(component_agent, takes_a_component_that_somebody_else_started_for_a_failure)
{
  (void)run("systemctl start starter@demo");

  std::string output;
  EXPECT_EQ(GENERIC, act("monitor", "", &output));
  EXPECT_THAT(output, HasSubstr("somebody else than Pacemaker"));

  EXPECT_EQ(SUCCESS, act("stop"));
  EXPECT_EQ(SUCCESS, act("start"));
  EXPECT_EQ(SUCCESS, act("monitor"));
}

TEST_F(component_agent, takes_a_component_on_its_way_up_for_a_failure)
{
  configure(dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", "init hang"));
  (void)run("systemctl start --no-block starter@demo");
  ASSERT_TRUE(wait_until([] { return show("ActiveState") == "activating"; }));

  std::string output;
  EXPECT_EQ(GENERIC, act("monitor", "", &output));
  EXPECT_THAT(output, HasSubstr("neither ready nor gone"));
}

TEST_F(component_agent, takes_a_critical_health_for_a_failure_and_logs_other_troubles)
{
  ASSERT_EQ(SUCCESS, act("start"));
  std::string output;

  for (const auto& [status, expected] : {std::pair{0, SUCCESS}, {1, SUCCESS}, {3, SUCCESS}, {2, GENERIC}}) {
    SCOPED_TRACE(status);
    pretend_health(status);
    EXPECT_EQ(expected, act("monitor", "", &output)) << output;
    EXPECT_EQ(status == 0, output.find("the text") == std::string::npos) << output;
  }
}

TEST_F(component_agent, reloads_a_component_that_goes_on_when_the_reload_is_refused)
{
  EXPECT_EQ(NOT_RUNNING, act("reload"));
  ASSERT_EQ(SUCCESS, act("start"));
  const std::string pid = show("MainPID");

  EXPECT_EQ(SUCCESS, act("reload"));
  EXPECT_TRUE(wait_until([this] { return log().find("reconfiguring") != std::string::npos; }));
  configure("dynamic Nonsense\n");
  EXPECT_EQ(GENERIC, act("reload"));

  EXPECT_EQ(SUCCESS, act("monitor"));
  EXPECT_EQ(pid, show("MainPID"));
}

TEST_F(component_agent, validates_the_configuration_as_the_component_sees_it)
{
  std::string output;
  EXPECT_EQ(SUCCESS, act("validate-all", "", &output)) << output;

  (void)run("echo STARTER_ARGS=-f /nowhere >/etc/starter/demo.env");
  EXPECT_EQ(INSTALLED, act("validate-all", "", &output));
  EXPECT_THAT(output, HasSubstr("/nowhere"));
  (void)run("rm /etc/starter/demo.env");

  (void)run("chmod 600 /etc/starter/demo.d/demo.conf");
  EXPECT_EQ(INSTALLED, act("validate-all", "", &output));
  EXPECT_THAT(output, HasSubstr("/etc/starter/demo.d/demo.conf: unreadable-file:"));
}

TEST_F(component_agent, refuses_a_unit_that_the_boot_would_start)
{
  (void)run("systemctl enable starter@demo");

  std::string output;
  EXPECT_EQ(INSTALLED, act("validate-all", "", &output));
  EXPECT_THAT(output, HasSubstr("systemctl disable starter@demo.service"));
  EXPECT_EQ(INSTALLED, act("start"));
  EXPECT_EQ(NOT_RUNNING, act("monitor"));
}

TEST_F(component_agent, refuses_names_that_no_component_has)
{
  for (const char* const name : {"''", "'a b'", "../demo", "demo.d"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(CONFIGURED, act("start", std::string("OCF_RESKEY_component=") + name));
  }
  EXPECT_EQ(UNIMPLEMENTED, act("promote"));
}
