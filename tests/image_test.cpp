// The images of a component: what is in them, and what they do where images are run. The component is the echo service.

#include "tests/support/command.h"
#include "tests/support/component_image.h"
#include "tests/support/container_room.h"
#include "tests/support/requirements.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

using testing::HasSubstr;

// Waits until the container echo has started, and sets `pid` to its process.
static const char WAIT_FOR_START[] = R"(
pid=$(podman inspect --format '{{.State.Pid}}' echo)
for i in $(seq 600); do ! podman logs echo 2>&1 | grep -q 'is started' || break; sleep 0.1; done
)";

// Asks the service of the process $pid for an echo.
static const char ASK[] = "nsenter --net --target $pid sh -c '(echo hello; sleep 1) | nc -q1 127.0.0.1 7007'\n";

namespace
{
class component_image : public testing::Test
{
protected:
  void SetUp() override
  {
    std::string missing;
    NEEDS(can_run_containers(missing), missing);
    NEEDS(can_make_images(missing), missing);
  }
};
} // namespace

TEST_F(component_image, runs_as_an_ordinary_user_on_a_root_that_is_read_only)
{
  const Component_Image image;

  const Ended room = run_in_container_room(
      "podman load --quiet --input " + image.file() +
      "\npodman image inspect --format 'size {{.Size}}' starter-echo\n"
      "podman run --detach --name echo --read-only --cgroups=disabled --network=none starter-echo\n" +
      WAIT_FOR_START + ASK +
      "grep Uid /proc/$pid/status; grep CapEff /proc/$pid/status\n"
      "awk '$5 == \"/\" { print \"root \" $6 }' /proc/$pid/mountinfo\n"
      "stat -c 'runtime %u %a' /proc/$pid/root/run/starter/echo\n"
      "podman stop echo; podman inspect --format 'status {{.State.ExitCode}}' echo; podman logs echo\n");

  EXPECT_EQ(0, room.status) << room.output;
  EXPECT_THAT(room.output, HasSubstr("\nhello\n"));
  EXPECT_THAT(room.output, HasSubstr("Uid:\t10001\t10001\t10001\t10001\n"));
  EXPECT_THAT(room.output, HasSubstr("CapEff:\t0000000000000000\n"));
  EXPECT_THAT(room.output, HasSubstr("\nroot ro,"));
  EXPECT_THAT(room.output, HasSubstr("\nruntime 10001 700\n"));
  EXPECT_THAT(room.output, HasSubstr("\nstatus 0\n"));
  EXPECT_THAT(room.output, HasSubstr("Signal 15 (Terminated) caught"));
  const std::size_t size = room.output.find("size ");
  ASSERT_NE(std::string::npos, size) << room.output;
  EXPECT_LT(std::stol(room.output.substr(size + 5)), 120'000'000);
}

// The component of a container is told to end by the signal that it ends in order at, whoever runs the container.
TEST_F(component_image, ends_with_status_0_on_sigterm)
{
  const Component_Image image;

  const Ended room = run_in_container_room(
      "podman load --quiet --input " + image.file() +
      "\npodman image inspect --format 'stop by {{.Config.StopSignal}}' starter-echo\n"
      "podman run --detach --name echo --read-only --cgroups=disabled --network=none starter-echo\n" +
      WAIT_FOR_START + "podman kill --signal TERM echo; echo ended $(podman wait echo)\n");

  EXPECT_EQ(0, room.status) << room.output;
  EXPECT_THAT(room.output, HasSubstr("\nstop by SIGTERM\n"));
  EXPECT_THAT(room.output, HasSubstr("\nended 0\n"));
}

// The manifest as it is shipped, but for two things. Its network is that of the room, because podman would need one
// more program for a network of the pod's own. Its limit of memory takes a control group that not every machine has to
// give.
TEST_F(component_image, runs_as_a_pod_of_the_manifest)
{
  const Component_Image image;

  const Ended room = run_in_container_room(
      "podman load --quiet --input " + image.file() +
      "\nip link set lo up\nsed '/ports:/,+1d; /resources:/,+2d; s/^    spec:$/&\\n      hostNetwork: "
      "true/' " TESTS_SOURCE_DIR "/cluster/kubernetes.yaml | podman play kube -\npodman rename echo-pod-0-echo echo\n" +
      WAIT_FOR_START + ASK +
      "grep Uid /proc/$pid/status; grep NoNewPrivs /proc/$pid/status\n"
      "awk '$5 == \"/\" { print \"root \" $6 }' /proc/$pid/mountinfo\n"
      "podman logs echo; podman pod stop echo-pod-0; podman inspect --format 'status {{.State.ExitCode}}' echo\n");

  EXPECT_EQ(0, room.status) << room.output;
  EXPECT_THAT(room.output, HasSubstr("\nhello\n"));
  EXPECT_THAT(room.output, HasSubstr("Uid:\t10001\t10001\t10001\t10001\n"));
  EXPECT_THAT(room.output, HasSubstr("NoNewPrivs:\t1\n"));
  EXPECT_THAT(room.output, HasSubstr("\nroot ro,"));
  EXPECT_THAT(room.output, HasSubstr("\nstatus 0\n"));
}

TEST(image_script, refuses_what_it_cannot_make_an_image_of)
{
  const Temp_Dir dir;
  const std::pair<const char*, const char*> cases[] = {
      {"", "Usage:"},
      {"echo", "Usage:"},
      {"Echo .", "Usage:"},
      {"-x echo .", "Usage:"},
      {"echo .", "There is no directory"},
  };

  for (const auto& [arguments, text] : cases) {
    SCOPED_TRACE(arguments);
    const Ended ended = run("cd " + dir.path() + " && " TESTS_SOURCE_DIR "/scripts/image " + arguments);

    EXPECT_EQ(2, ended.status);
    EXPECT_THAT(ended.output, HasSubstr(text));
  }
}
