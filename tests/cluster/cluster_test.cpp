// Three machines form a cluster with Corosync and Pacemaker, which keeps the echo service active on one of them. A
// client watches the service while it moves, or while its process, its machine or a cable dies. STARTER_CLUSTER_RUNS is
// the number of times that each of these happens; the times are printed, and none is asserted. STARTER_CLUSTER_ANSWERS
// is a directory: the answers of the first run of each kind go into a file there.

#include "tests/cluster/cluster.h"
#include "tests/cluster/cluster_needs.h"
#include "tests/cluster/instances.h"
#include "tests/cluster/prober.h"
#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <signal.h>

using std::chrono::duration;

static unsigned runs()
{
  const char* const text = std::getenv("STARTER_CLUSTER_RUNS");
  return text && *text ? static_cast<unsigned>(std::atoi(text)) : 1;
}

class cluster : public testing::Test
{
protected:
  static void SetUpTestSuite()
  {
    if (missing_for_cluster())
      return;
    packages_ = std::make_unique<Debian_Packages>();
    cluster_ = std::make_unique<Cluster>(
        std::vector<std::string>{packages_->file("starter"), packages_->file("starter-pacemaker")});
    add_files();
    for (unsigned i = 0; i < Cluster::SIZE; ++i)
      cluster_->boot(i, "corosync pacemaker");
    configure();

    std::vector<std::string> paths;
    for (unsigned i = 0; i < Cluster::SIZE; ++i)
      paths.push_back(cluster_->processes_file(i, "echo"));
    instances_ = std::make_unique<Instances>(paths);
    prober_ = std::make_unique<Prober>(Cluster::ADDRESS, Cluster::PORT);
  }

  static void TearDownTestSuite()
  {
    prober_.reset();
    instances_.reset();
    cluster_.reset();
    packages_.reset();
  }

  void SetUp() override { NEEDS(!missing_for_cluster(), missing_for_cluster()); }

  void TearDown() override
  {
    if (HasFailure() && cluster_)
      for (unsigned i = 0; i < Cluster::SIZE; ++i)
        if (cluster_->is_on(i))
          std::cerr << "---- node" << i + 1 << '\n'
                    << cluster_->machine(i).run("crm_mon -1rf; journalctl -n 30 -u 'starter*'; tail -n 60 "
                                                "/var/log/pacemaker/pacemaker.log")
                    << '\n';
  }

  // Let `happen` befall the machine on which the service is active, and wait until the service is there again: on
  // another machine if it `moves`. Each time the times of the client are noted.
  void repeat(const std::string& what, bool moves, const std::function<void(unsigned)>& happen)
  {
    std::vector<double> gaps;
    for (unsigned run = 0; run < runs(); ++run) {
      SCOPED_TRACE(what + ", run " + std::to_string(run));
      ASSERT_NO_FATAL_FAILURE(wait_until_healthy());
      const bool is_drawn = run == 0 && answers_dir();
      if (is_drawn)
        let_a_second_pass();

      const Clock::time_point begin = Clock::now();
      ASSERT_NO_FATAL_FAILURE(survive(moves, happen));
      gaps.push_back(prober_->longest_gap_since(begin).count());

      if (is_drawn) {
        let_a_second_pass();
        write_answers(what, begin);
      }
    }
    expect_consistency();
    print(what, "without an answer for", gaps);
  }

  static void print(const std::string& what, const char* measured, std::vector<double> times)
  {
    std::sort(times.begin(), times.end());
    const auto percentile = [&](std::size_t percent) { return times[(times.size() * percent + 99) / 100 - 1]; };
    std::printf("%s: %zu runs, %s p50 %.2f s, p95 %.2f s, at most %.2f s\n", what.c_str(), times.size(), measured,
                percentile(50), percentile(95), times.back());
    std::fflush(stdout);
  }

  // All machines are in the cluster, and the service answers. Machines that are off are booted again.
  static void wait_until_healthy()
  {
    for (unsigned i = 0; i < Cluster::SIZE; ++i)
      if (!cluster_->is_on(i)) {
        instances_->set_path(i, "");
        ASSERT_NO_FATAL_FAILURE(cluster_->boot(i, "corosync pacemaker"));
        instances_->set_path(i, cluster_->processes_file(i, "echo"));
      }

    (void)cluster_->any_machine().run(
        "crm_resource --quiet --resource service --clear 2>/dev/null"); // of a move before
    ASSERT_TRUE(wait_until([] {
      return cluster_->any_machine().run("crm_mon -1 2>/dev/null | grep -c 'Online: . node1 node2 node3 .'") == "1" &&
             cluster_->any_machine().run("crmadmin -qS $(crmadmin -D -q 2>/dev/null) 2>/dev/null") == "S_IDLE";
    })) << cluster_->any_machine().run("crm_mon -1rf");
    const Clock::time_point now = Clock::now();
    ASSERT_TRUE(wait_until([&] { return instances_->active() != -1 && prober_->has_answer_since(now); }));
  }

  static unsigned other_than(unsigned node) { return (node + 1) % Cluster::SIZE; }

  static std::unique_ptr<Debian_Packages> packages_;
  static std::unique_ptr<Cluster> cluster_;
  static std::unique_ptr<Instances> instances_;
  static std::unique_ptr<Prober> prober_;

private:
  static void survive(bool moves, const std::function<void(unsigned)>& happen)
  {
    const auto before = static_cast<unsigned>(instances_->active());
    const std::vector<pid_t> processes = instances_->processes(before);

    happen(before);

    ASSERT_TRUE(wait_until([&] {
      const int now = instances_->active();
      return now != -1 &&
             (moves ? now != static_cast<int>(before) : instances_->processes(static_cast<unsigned>(now)) != processes);
    }));
    const Clock::time_point there = Clock::now();
    ASSERT_TRUE(wait_until([&] { return prober_->has_answer_since(there); }));
  }

  static void add_files();
  static void configure();

  static void expect_consistency()
  {
    EXPECT_EQ(0u, instances_->doubled());
    EXPECT_EQ(0u, prober_->wrong());
    EXPECT_EQ(0u, prober_->too_long());
    EXPECT_LT(100u, instances_->looks());
  }

  static const char* answers_dir()
  {
    const char* const dir = std::getenv("STARTER_CLUSTER_ANSWERS");
    return dir && *dir ? dir : nullptr;
  }

  // The second before an event and the one after its end belong to the picture.
  static void let_a_second_pass()
  {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    EXPECT_TRUE(wait_until([&] { return prober_->has_answer_since(end); }));
  }

  static void write_answers(const std::string& what, Clock::time_point begin)
  {
    std::ofstream file(answers_dir() + ("/" + what));
    for (const Prober::Result& one : prober_->results())
      if (one.begin > begin - std::chrono::seconds(1))
        file << duration<double>(one.begin - begin).count() << ' '
             << duration<double, std::milli>(one.end - one.begin).count() << ' ' << one.answered << '\n';
  }
};

std::unique_ptr<Debian_Packages> cluster::packages_;
std::unique_ptr<Cluster> cluster::cluster_;
std::unique_ptr<Instances> cluster::instances_;
std::unique_ptr<Prober> cluster::prober_;

static const char COROSYNC_CONF[] = R"(totem {
  version: 2
  cluster_name: tests
  transport: knet
  token: 1000
  token_coefficient: 0
}
nodelist {
  node {
    name: node1
    nodeid: 1
    ring0_addr: 192.0.2.1
  }
  node {
    name: node2
    nodeid: 2
    ring0_addr: 192.0.2.2
  }
  node {
    name: node3
    nodeid: 3
    ring0_addr: 192.0.2.3
  }
}
quorum {
  provider: corosync_votequorum
}
logging {
  to_syslog: yes
}
)";

// A cluster that has just been made looks for others for 20 seconds, unless its first configuration tells otherwise.
static const char FIRST_CONFIGURATION[] = R"(<cib validate-with="pacemaker-3.7" admin_epoch="0" epoch="1"
 num_updates="0"><configuration><crm_config><cluster_property_set id="cib-bootstrap-options">
<nvpair id="cib-bootstrap-options-dc-deadtime" name="dc-deadtime" value="3s"/>
<nvpair id="cib-bootstrap-options-startup-fencing" name="startup-fencing" value="false"/>
</cluster_property_set></crm_config><nodes/><resources/><constraints/></configuration><status/></cib>
)";

void cluster::add_files()
{
  cluster_->add_file("/etc/corosync/corosync.conf", COROSYNC_CONF);
  cluster_->add_file("/var/lib/pacemaker/cib/cib.xml", FIRST_CONFIGURATION, "hacluster:haclient", "600");
  cluster_->add_file("/usr/sbin/fence_machine", read_file(TESTS_FENCE_AGENT), "root:root", "755");
  cluster_->add_file("/usr/lib/libecho.so", read_file(TESTS_ECHO_LIBRARY));
  cluster_->add_file("/etc/starter/echo.d/echo.conf",
                     std::string("dynamic Echo Service_Object * /usr/lib/libecho.so:_make_Echo() \"-a ") +
                         Cluster::ADDRESS + "\"\n");
}

void cluster::configure()
{
  ASSERT_TRUE(wait_until([] {
    return cluster_->any_machine().run("crm_mon -1 2>/dev/null | grep -c 'Online: . node1 node2 node3 .'") == "1";
  }));
  // The monitor of the component comes too late for any test: the agent has to tell of the death of the process.
  const std::string configuration =
      std::string("primitive power stonith:fence_machine params pcmk_host_list=\"node1 node2 node3\""
                  " op monitor interval=60s\n"
                  "primitive address ocf:heartbeat:IPaddr2 params cidr_netmask=24 ip=") +
      Cluster::ADDRESS +
      " op monitor interval=10s timeout=20s\n"
      "primitive echo ocf:starter:component params component=echo"
      " op start timeout=100s op stop timeout=45s op monitor interval=600s timeout=20s\n"
      "group service address echo\n"
      "rsc_defaults resource-stickiness=1\n";
  Systemd_Machine& machine = cluster_->any_machine();
  const std::string output =
      machine.run("crm configure load update " + machine.dir().write("crm", configuration) + " 2>&1 || echo failed");
  ASSERT_THAT(output, testing::Not(testing::EndsWith("failed"))) << output;
}

TEST_F(cluster, moves_the_service_to_another_machine_on_command)
{
  repeat("planned move", true, [](unsigned active) {
    Systemd_Machine& machine = cluster_->machine(active);
    EXPECT_TRUE(machine.succeeds("crm_resource --quiet --resource service --move --node " +
                                 Cluster::name_of(other_than(active))));
  });
}

TEST_F(cluster, restarts_the_service_when_its_process_dies)
{
  repeat("death of the process", false, [](unsigned active) {
    for (const pid_t pid : instances_->processes(active))
      kill(pid, SIGKILL);
  });
}

TEST_F(cluster, starts_the_service_on_another_machine_when_its_machine_dies)
{
  repeat("death of the machine", true, [](unsigned active) { cluster_->power_off(active); });
}

// The machine goes on serving clients, until the others have had it killed.
TEST_F(cluster, kills_a_machine_that_is_cut_off_before_the_service_starts_on_another)
{
  repeat("partition", true, [](unsigned active) { cluster_->cut_off(active); });
}

// The test also shows that two instances would be seen. Without a quorum a machine stops the service, and takes as long
// for that as the others take to start it.
TEST_F(cluster, has_two_instances_without_fencing)
{
  ASSERT_NO_FATAL_FAILURE(wait_until_healthy());
  ASSERT_TRUE(cluster_->any_machine().succeeds("crm configure property stonith-enabled=false"));
  std::vector<double> times;
  for (unsigned run = 0; run < runs(); ++run) {
    ASSERT_NO_FATAL_FAILURE(wait_until_healthy());
    const unsigned before = static_cast<unsigned>(instances_->active());
    const double doubled = instances_->doubled_time().count();
    cluster_->cut_off(before);
    ASSERT_TRUE(wait_until([&] { return instances_->processes(before).empty() && instances_->active() != -1; }));
    times.push_back(instances_->doubled_time().count() - doubled);
    cluster_->power_off(before);
  }
  print("partition without fencing", "two instances for", times);

  ASSERT_NO_FATAL_FAILURE(wait_until_healthy());
  ASSERT_TRUE(cluster_->any_machine().succeeds("crm configure property no-quorum-policy=ignore"));
  const unsigned before = instances_->doubled();
  cluster_->cut_off(static_cast<unsigned>(instances_->active()));
  EXPECT_TRUE(wait_until([&] { return instances_->doubled() > before; }));
}
