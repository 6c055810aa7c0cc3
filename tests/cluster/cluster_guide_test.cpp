// The test follows the guide to clusters: three machines are set up as it says, from nothing but what Debian has.

#include "tests/cluster/cluster.h"
#include "tests/cluster/cluster_needs.h"
#include "tests/support/command.h"
#include "tests/support/debian_packages.h"
#include "tests/support/guide.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;

// An operator answers yes to apt, and has other means to copy a file to another machine.
static const char PRELUDE[] = R"(
export DEBIAN_FRONTEND=noninteractive
apt() { command apt-get -q -y --no-install-recommends "$@"; }
scp() { install -D "$2" "sent/${3%%:*}${3#*:}"; }
)";

class cluster_guide : public testing::Test
{
protected:
  void SetUp() override
  {
    NEEDS(!missing_for_cluster(), missing_for_cluster());
    cluster_ = std::make_unique<Cluster>();
    cluster_->add_file("/usr/local/lib/libecho.so", read_file(TESTS_ECHO_LIBRARY));
    // The machines have no management boards.
    cluster_->add_file("/usr/sbin/fence_ipmilan", read_file(TESTS_FENCE_AGENT), "root:root", "755");
    for (unsigned i = 0; i < Cluster::SIZE; ++i) {
      cluster_->boot(i);
      fs::create_directory(directory(i));
      for (const char* const package : {"starter", "starter-pacemaker"})
        fs::copy(packages_.file(package), directory(i));
    }
  }

  void TearDown() override
  {
    for (unsigned i = 0; HasFailure() && i < Cluster::SIZE; ++i)
      if (cluster_ && cluster_->is_on(i))
        std::cerr << "---- node" << i + 1 << '\n'
                  << cluster_->machine(i).run("crm_mon -1rf; journalctl -n 40 -u 'starter*'; tail -n 80 "
                                              "/var/log/pacemaker/pacemaker.log")
                  << '\n';
  }

  // The directory of the packages, where the operator is.
  std::string directory(unsigned node) const { return cluster_->machine(node).dir() / "operator"; }

  // Runs the commands of a block. Returns their output, of which the last line is "failed" if one of them has failed.
  std::string run(unsigned node, const std::string& commands) const
  {
    const Systemd_Machine& machine = cluster_->machine(node);
    return machine.run("cd " + directory(node) + " && timeout -k 5 120 bash -eu " +
                       machine.dir().write("block", PRELUDE + commands) + " 2>&1 || echo failed");
  }

  void write(const Block& block) const
  {
    for (unsigned i = 0; i < Cluster::SIZE; ++i)
      (void)run(i, "mkdir -p $(dirname " + block.path + ")\ncat >" + block.path + " <<'END OF FILE'\n" + block.text +
                       "END OF FILE\n");
  }

  // Files that the operator has sent from the first machine arrive.
  void deliver() const
  {
    for (unsigned i = 1; i < Cluster::SIZE; ++i) {
      const fs::path sent = fs::path(directory(0)) / "sent" / Cluster::name_of(i);
      if (fs::exists(sent)) {
        fs::copy(sent, directory(i) + "/received", fs::copy_options::recursive);
        fs::remove_all(sent);
        EXPECT_EQ("", run(i, "cp -r received/* / && rm -r received"));
      }
    }
  }

  const Debian_Packages packages_;
  std::unique_ptr<Cluster> cluster_;
};

TEST_F(cluster_guide, works_as_it_says)
{
  unsigned commands = 0;
  std::string last;
  for (const Block& block : blocks_of(read_file(TESTS_GUIDE))) {
    SCOPED_TRACE(block.text);
    if (!block.path.empty())
      write(block);
    else if (block.kind == "every" || block.kind == "one")
      for (unsigned i = 0; i < (block.kind == "one" ? 1 : Cluster::SIZE); ++i, ++commands) {
        last = run(i, block.text);
        ASSERT_THAT(last, testing::Not(testing::EndsWith("failed"))) << last;
        deliver();
      }
    else if (block.kind == "text")
      expect_lines(block.text, last);
  }
  EXPECT_EQ(15u, commands);
}
