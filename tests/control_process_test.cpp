// The companion "control" in the program: every command, good and bad, and the socket.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/control_client.h"
#include "tests/support/fake_notify_socket.h"
#include "tests/support/hanger.h"
#include "tests/support/loops.h"
#include "tests/support/requirements.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using nlohmann::json;
using testing::HasSubstr;

using Texts = std::vector<std::string>;

namespace
{
// The control, and a process whose configuration the test writes.
class control : public testing::Test
{
protected:
  std::string path() const { return dir_ / "control.socket"; }

  void configure(const std::string& directives) const
  {
    dir_.write("new", companion_directive("control", ("-s " + path()).c_str()) + directives);
    ASSERT_EQ(0, std::rename((dir_ / "new").c_str(), (dir_ / "x.conf").c_str()));
  }

  // The arguments that load the control and then what `directives` name.
  Texts with(const std::string& directives, Texts args = {}) const
  {
    configure(directives);
    args.insert(args.end(), {"-f", dir_ / "x.conf"});
    return args;
  }

  static std::string talker(const std::string& name, const std::string& factory = "_make_Talker")
  {
    return dynamic_directive(name, "talker", factory, name);
  }

  static void end(Starter_Process& starter)
  {
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();
  }

  Temp_Dir dir_;
};

class control_of_each_loop : public control, public testing::WithParamInterface<Loop>
{
};

std::vector<Loop> some_loops()
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    for (const std::string name : {"default", "select_4", "tp_2", "tp_4", "dev_poll", "dev_poll_4", "priority"})
      if (loop.name == name)
        loops.push_back(loop);
  return loops;
}

// The state of the service in the answer to "services", or "none".
std::string state_of(Control_Client& client, const std::string& name)
{
  const json answer = client.command("services");
  for (const json& service : answer["services"])
    if (service["name"] == name)
      return service["state"];
  return "none";
}

const json OK = {{"ok", true}};

json refusal(const std::string& sentence)
{
  return {{"ok", false}, {"error", sentence}};
}
} // namespace

// ---- What runs

TEST_P(control_of_each_loop, tells_the_status)
{
  Start_Options options;
  options.env["COMPONENT"] = "demo";
  Starter_Process starter(with(talker("A"), GetParam().args), options);
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();
  Control_Client client(path());

  json status;
  ASSERT_TRUE(wait_until([&] { // the threads of a pool come one after another
    status = client.command("status");
    const bool is_single = GetParam().threads == 1;
    return status["threads"].size() == (is_single ? 1 : GetParam().threads - 1);
  })) << status;

  EXPECT_EQ(true, status["ok"]);
  EXPECT_EQ("demo", status["component"]);
  EXPECT_EQ(starter.pid(), status["pid"]);
  EXPECT_EQ("running", status["state"]);
  EXPECT_EQ(0, status["reloads"]);
  EXPECT_EQ("", status["last_failure"]);
  EXPECT_TRUE(status["uptime_seconds"].is_number());
  EXPECT_NE("unknown", status["version"]);
  EXPECT_NE("unknown", status["revision"]);
  const Texts& args = GetParam().args;
  EXPECT_EQ(args.empty() ? "select" : args[1], status["reactor"]);
  ASSERT_TRUE(wait_until([&] {
    status = client.command("status");
    for (const json& thread : status["threads"])
      if (thread["state"] != "waiting")
        return false;
    return true;
  })) << status;
  end(starter);
}

TEST_F(control, lists_the_services_with_their_states_and_libraries)
{
  Starter_Process starter(with(talker("A") + talker("B", "_make_Nothing") + talker("C") + "suspend C\n"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  ASSERT_TRUE(wait_until([&] { return state_of(client, "B") == "missing"; }));

  const json services = client.command("services")["services"];

  const std::string library = service_library("talker");
  ASSERT_EQ(4u, services.size()) << services;
  EXPECT_EQ("Control", services[0]["name"]);
  EXPECT_THAT(services[0]["library"], HasSubstr("libstarter_control.so"));
  EXPECT_EQ((json{{"name", "A"}, {"type", "service"}, {"state", "active"}, {"library", library}}), services[1]);
  EXPECT_EQ((json{{"name", "C"}, {"type", "service"}, {"state", "suspended"}, {"library", library}}), services[2]);
  EXPECT_EQ((json{{"name", "B"}, {"type", "service"}, {"state", "missing"}, {"library", library}}), services[3]);
  end(starter);
}

TEST_F(control, tells_the_health)
{
  Starter_Process starter(with(talker("A") + talker("B")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  json health;
  ASSERT_TRUE(wait_until([&] { return (health = client.command("health"))["status"] == 0; })) << health;
  EXPECT_EQ("OK: all services of the configuration are active", health["text"]);
  EXPECT_EQ(true, health["loop_answers"]);
  EXPECT_TRUE(health["stalled_threads"].is_null());

  EXPECT_EQ(OK, client.command("suspend", "name", "A"));
  health = client.command("health");
  EXPECT_EQ(1, health["status"]) << health;
  EXPECT_EQ(json{"A"}, health["suspended"]);
  EXPECT_EQ("WARNING: suspended: A", health["text"]);

  EXPECT_EQ(OK, client.command("remove", "name", "B"));
  health = client.command("health");
  EXPECT_EQ(2, health["status"]) << health;
  EXPECT_EQ(json{"B"}, health["missing"]);
  EXPECT_EQ("CRITICAL: missing: B; suspended: A", health["text"]);
  end(starter);
}

TEST_F(control, calls_a_service_healthy_that_the_configuration_suspends)
{
  Starter_Process starter(with(talker("A") + "suspend A\n"));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  ASSERT_EQ("suspended", state_of(client, "A"));

  EXPECT_TRUE(wait_until([&] { return client.command("health")["status"] == 0; })) << client.command("health");
  end(starter);
}

// ---- A loop that hangs

TEST_F(control, answers_while_the_loop_hangs)
{
  Hanger_Commands hanger;
  configure("");
  Starter_Process starter(hanger.make_args({}, "-t 3600000", companion_directive("control", ("-s " + path()).c_str())));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  ASSERT_TRUE(wait_until([&] { return client.command("health")["status"] == 0; }));
  ASSERT_TRUE(hanger.hang(starter, HANGS[0])) << starter.log();

  const json health = client.command("health");
  EXPECT_EQ(2, health["status"]) << health;
  EXPECT_EQ(false, health["loop_answers"]);
  EXPECT_EQ("CRITICAL: the event loop does not answer within a second", health["text"]);
  const json status = client.command("status");
  EXPECT_EQ("running", status["state"]);
  EXPECT_EQ("working", status["threads"][0]["state"]);

  const json trace = client.command("trace");
  EXPECT_EQ(starter.pid(), trace["threads"][0]["tid"]);
  EXPECT_THAT(trace["threads"][0]["frames"].dump(), HasSubstr(HANGS[0].function));

  const json change = client.command("suspend", "name", "Hanger");
  EXPECT_THAT(change["error"], HasSubstr("Nothing was changed: for ten seconds,"));
  ASSERT_TRUE(hanger.release(starter)) << starter.log();
  EXPECT_EQ("active", state_of(client, "Hanger"));
  EXPECT_EQ(OK, client.command("suspend", "name", "Hanger"));
  end(starter);
}

TEST_F(control, tells_the_threads_that_the_guard_calls_stalled)
{
  Hanger_Commands hanger;
  Starter_Process starter(hanger.make_args({"--reactor", "dev_poll", "--threads", "4"}, "-t 50",
                                           companion_directive("control", ("-s " + path()).c_str())));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  json health;
  ASSERT_TRUE(wait_until([&] { return (health = client.command("health"))["status"] == 0; })) << health;
  EXPECT_EQ(0, health["stalled_threads"]) << health;

  ASSERT_TRUE(hanger.hang(starter, HANGS[0])) << starter.log();
  ASSERT_TRUE(wait_until([&] { return (health = client.command("health"))["stalled_threads"] == 1; })) << health;
  EXPECT_EQ(2, health["status"]) << health;
  EXPECT_EQ(true, health["loop_answers"]) << health; // the other threads of the pool do
  EXPECT_EQ("CRITICAL: stalled threads: 1", health["text"]);
  const json threads = client.command("status")["threads"];
  EXPECT_EQ(1, std::count_if(threads.begin(), threads.end(), [](const json& t) { return t["state"] == "working"; }))
      << threads;

  ASSERT_TRUE(hanger.release(starter)) << starter.log();
  EXPECT_TRUE(wait_until([&] { return (health = client.command("health"))["status"] == 0; })) << health;
  EXPECT_EQ(0, health["stalled_threads"]) << health;
  end(starter);
}

TEST_F(control, has_a_reload_made_while_the_loop_hangs)
{
  Hanger_Commands hanger;
  Starter_Process starter(
      hanger.make_args({}, "-t 3600000", companion_directive("control", ("-s " + path()).c_str()) + talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  ASSERT_TRUE(hanger.hang(starter, HANGS[0])) << starter.log();

  const json reload = client.command("reload");
  EXPECT_EQ(true, reload["ok"]) << reload << starter.log();
  EXPECT_EQ(2u, starter.count("A init.")) << starter.log();
  starter.send(SIGKILL); // the service was deleted under its callback
}

// ---- One service

TEST_P(control_of_each_loop, changes_one_service_and_leaves_the_others_alone)
{
  Starter_Process starter(with(talker("A") + talker("B"), GetParam().args));
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();
  Control_Client client(path());

  EXPECT_EQ(OK, client.command("suspend", "name", "A"));
  EXPECT_EQ("suspended", state_of(client, "A"));
  EXPECT_EQ(refusal("The service 'A' is suspended already."), client.command("suspend", "name", "A"));
  EXPECT_EQ(OK, client.command("resume", "name", "A"));
  EXPECT_EQ("active", state_of(client, "A"));
  EXPECT_EQ(refusal("The service 'A' is not suspended."), client.command("resume", "name", "A"));

  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_TRUE(starter.wait_for_record("A init.", 2)) << starter.log();
  EXPECT_EQ(1u, starter.count("A fini.")) << starter.log();

  EXPECT_EQ(OK, client.command("remove", "name", "A"));
  EXPECT_TRUE(starter.wait_for_record("A fini.", 2)) << starter.log();
  EXPECT_EQ("missing", state_of(client, "A"));
  EXPECT_EQ(refusal("There is no service 'A'."), client.command("remove", "name", "A"));

  EXPECT_EQ(OK, client.command("load", "directive", talker("A")));
  EXPECT_TRUE(starter.wait_for_record("A init.", 3)) << starter.log();
  EXPECT_EQ("active", state_of(client, "A"));
  EXPECT_EQ(refusal("There is a service 'A' already."), client.command("load", "directive", talker("A")));

  EXPECT_EQ(1u, starter.count("B init.")) << starter.log();
  EXPECT_EQ(0u, starter.count("B fini.")) << starter.log();
  EXPECT_EQ(0u, starter.count("ACE (")) << "debug records of the framework\n" << starter.log();
  end(starter);
  EXPECT_EQ(3u, starter.count("A fini.")) << starter.log();
}

TEST_F(control, restarts_a_service_that_is_missing_or_was_loaded_by_a_command)
{
  Starter_Process starter(with(talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  EXPECT_EQ(OK, client.command("remove", "name", "A"));
  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_EQ("active", state_of(client, "A"));
  EXPECT_EQ(OK, client.command("load", "directive", talker("B")));
  EXPECT_EQ(OK, client.command("restart", "name", "B"));
  EXPECT_TRUE(starter.wait_for_record("B init.", 2)) << starter.log();
  end(starter);
}

TEST_F(control, says_why_a_change_fails)
{
  Starter_Process starter(with(talker("A") + talker("B", "_make_Nothing")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  const std::string own = "The service 'Control' is the control itself, which cannot be changed through itself.";
  const std::string library = service_library("talker");
  ASSERT_TRUE(wait_until([&] { return state_of(client, "B") == "missing"; }));

  for (const std::string command : {"suspend", "resume", "remove", "restart"}) {
    SCOPED_TRACE(command);
    EXPECT_EQ(refusal(own), client.command(command, "name", "Control"));
    EXPECT_EQ(refusal("There is no service 'X'."), client.command(command, "name", "X"));
  }
  EXPECT_EQ(refusal("The service 'B' was not started: " + library + ": undefined symbol: _make_Nothing."),
            client.command("restart", "name", "B"));

  const std::tuple<std::string, std::string> loads[] = {
      {"", "Nothing is loaded: there is no directive."},
      {"remove A", "Nothing is loaded: the directive does not load a service."},
      {talker("C") + talker("D"), "Nothing is loaded: there is more than one directive."},
      {talker("Control"), "There is a service 'Control' already."},
      {"dynamic C Service_Object * /nowhere/libc.so:_make_C()",
       "The service 'C' was not started: /nowhere/libc.so: cannot open shared object file: No such file or directory."},
      {dynamic_directive("C", "staller", "_make_Staller"), "The service 'C' was not started: its init failed."},
      {companion_directive("guard", "-Z"),
       "The service 'Guard' was not started: Failed to start the guard: there is no option -Z."}};
  for (const auto& [directive, reason] : loads) {
    SCOPED_TRACE(directive);
    EXPECT_EQ(refusal(reason), client.command("load", "directive", directive));
  }
  EXPECT_THAT(client.command("load", "directive", "dynamic C Service *")["error"], HasSubstr("Nothing is loaded: "));
  EXPECT_EQ("active", state_of(client, "Control"));
  EXPECT_EQ("none", state_of(client, "C"));
  end(starter);
}

// A second start of the callback of the log must not hand records on in a circle.
TEST_F(control, restarts_the_companion_lifecycle)
{
  Fake_Notify_Socket systemd(dir_ / "notify");
  Start_Options options;
  options.env["NOTIFY_SOCKET"] = dir_ / "notify";
  Starter_Process starter(with(companion_directive("lifecycle") + talker("A")), options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(OK, client.command("restart", "name", "Lifecycle"));
  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_EQ(true, client.command("reload")["ok"]);
  end(starter);
}

// ---- Reloads

TEST_P(control_of_each_loop, says_how_a_reload_went)
{
  Starter_Process starter(with(talker("A"), GetParam().args));
  ASSERT_TRUE(wait_for_loop(starter, {"", {}, GetParam().threads + 1})) << starter.log();
  Control_Client client(path());

  const json good = {{"ok", true},
                     {"started", {"A", "Control"}},
                     {"ended", {"A", "Control"}},
                     {"failed", json::array()},
                     {"missing", json::array()}};
  EXPECT_EQ(good, client.command("reload"));
  EXPECT_EQ(2u, starter.count("A init.")) << starter.log();

  configure(talker("A", "_make_Nothing") + talker("B"));
  const json broken = {
      {"ok", false},
      {"error", "Not every service of the configuration is there after the reload."},
      {"started", {"B", "Control"}},
      {"ended", {"A", "Control"}},
      {"failed", {{{"name", "A"}, {"reason", service_library("talker") + ": undefined symbol: _make_Nothing"}}}},
      {"missing", {"A"}}};
  EXPECT_EQ(broken, client.command("reload"));
  EXPECT_EQ("missing", state_of(client, "A"));

  configure(talker("A") + talker("B"));
  const json mended = client.command("reload");
  EXPECT_EQ(true, mended["ok"]) << mended;
  EXPECT_EQ(json({"A", "B", "Control"}), mended["started"]);
  EXPECT_EQ(json({"B", "Control"}), mended["ended"]);
  EXPECT_EQ(3, client.command("status")["reloads"]);
  EXPECT_EQ(0u, starter.count("ACE (")) << "debug records of the framework\n" << starter.log();
  end(starter);
}

TEST_F(control, says_that_a_file_which_cannot_be_read_keeps_a_reload_from_being_made)
{
  Starter_Process starter(with(talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  ASSERT_TRUE(wait_until([&] { return client.command("health")["status"] == 0; }));
  ASSERT_EQ(0, ::unlink((dir_ / "x.conf").c_str()));
  ASSERT_EQ(0, ::mkdir((dir_ / "x.conf").c_str(), 0700));

  const json reload = client.command("reload");
  EXPECT_EQ(false, reload["ok"]) << reload;
  EXPECT_THAT(reload["error"], HasSubstr("Failed to read " + dir_ / "x.conf"));
  EXPECT_EQ(json::array(), reload["started"]);
  EXPECT_EQ(1u, starter.count("A init.")) << starter.log();
  end(starter);
}

TEST_F(control, tells_a_waiting_client_of_the_reload_that_ends_the_control)
{
  Starter_Process starter(with(talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  dir_.write("x.conf", companion_directive("control", "-Z") + talker("A"));

  const json reload = client.command("reload");
  EXPECT_EQ(false, reload["ok"]) << reload;
  EXPECT_EQ(json{"Control"}, reload["missing"]);
  EXPECT_EQ("Failed to start the control: there is no option -Z", reload["failed"][0]["reason"]);
  EXPECT_TRUE(client.is_closed());
  EXPECT_TRUE(wait_until([&] { return ::access(path().c_str(), F_OK) != 0; }));

  configure(talker("A"));
  starter.send(SIGHUP);
  Control_Client later(path());
  EXPECT_EQ("running", later.command("status")["state"]);
  end(starter);
}

// ---- The log

TEST_F(control, sets_the_least_priority_of_records)
{
  Starter_Process starter(with(talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  EXPECT_EQ(OK, client.command("log-level", "priority", "error"));
  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_EQ(OK, client.command("log-level", "priority", "info"));
  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_TRUE(starter.wait_for_record("Control: restart A")) << starter.log();
  EXPECT_EQ(2u, starter.count("A init.")) << starter.log();
  EXPECT_THAT(client.command("log-level", "priority", "loud")["error"], HasSubstr("There is no priority 'loud'"));
  end(starter);
}

TEST_F(control, gives_reasons_though_records_are_dropped)
{
  Starter_Process starter(with(talker("B", "_make_Nothing")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());
  EXPECT_EQ(OK, client.command("log-level", "priority", "emergency"));

  EXPECT_THAT(client.command("restart", "name", "B")["error"], HasSubstr("undefined symbol: _make_Nothing"));
  EXPECT_THAT(client.command("reload")["failed"].dump(), HasSubstr("undefined symbol: _make_Nothing"));
  end(starter);
}

TEST_F(control, switches_the_debug_records)
{
  Starter_Process starter(with(talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  EXPECT_EQ(OK, client.command("debug", "on", true));
  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_TRUE(starter.wait_for_record("name=A - looking up in the repo")) << starter.log();
  EXPECT_EQ(OK, client.command("debug", "on", false));
  starter.forget_log();
  EXPECT_EQ(OK, client.command("restart", "name", "A"));
  EXPECT_TRUE(starter.wait_for_record("Control: restart A")) << starter.log();
  EXPECT_EQ(0u, starter.count("looking up in the repo")) << starter.log();
  end(starter);
}

// ---- Requests

TEST_F(control, answers_wrong_requests_with_an_error_and_goes_on)
{
  Starter_Process starter(with(""));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  const std::tuple<std::string, std::string> cases[] = {
      {"", "The request is no JSON object in a line."},
      {"status", "The request is no JSON object in a line."},
      {"[]", "The request is no JSON object in a line."},
      {"{\"command\":\"status\"", "The request is no JSON object in a line."},
      {"\xff\xfe", "The request is no JSON object in a line."},
      {std::string(60000, '['), "The request is no JSON object in a line."},
      {"{}", "The request has no member 'command', a text."},
      {"{\"command\":1}", "The request has no member 'command', a text."},
      {"{\"command\":\"stop\"}", "There is no command 'stop'."},
      {"{\"command\":\"status\",\"name\":\"A\"}", "The command 'status' has no member 'name'."},
      {"{\"command\":\"remove\"}", "The command 'remove' needs the member 'name', a text."},
      {"{\"command\":\"remove\",\"name\":7}", "The command 'remove' needs the member 'name', a text."},
      {"{\"command\":\"remove\",\"name\":\"A\\u0000B\"}", "The member 'name' has a null character."},
      {"{\"command\":\"debug\",\"on\":\"yes\"}", "The command 'debug' needs the member 'on', true or false."}};
  for (const auto& [request, reason] : cases) {
    SCOPED_TRACE(request.substr(0, 80));
    ASSERT_TRUE(client.send(request + '\n'));
    EXPECT_EQ(refusal(reason), json::parse(client.line(), nullptr, false));
  }
  EXPECT_EQ("running", client.command("status")["state"]);
  end(starter);
}

TEST_F(control, answers_requests_that_come_together_in_their_order)
{
  Starter_Process starter(with(talker("A")));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  ASSERT_TRUE(client.send("{\"command\":\"reload\"}\n{\"command\":\"nothing\"}\n{\"command\":\"services\"}\n"));
  client.end_sending();
  EXPECT_THAT(client.line(), HasSubstr("\"started\""));
  EXPECT_THAT(client.line(), HasSubstr("There is no command 'nothing'."));
  EXPECT_THAT(client.line(), HasSubstr("\"services\""));
  EXPECT_TRUE(client.is_closed());
  end(starter);
}

TEST_F(control, refuses_a_request_that_is_too_long_or_not_sent_to_its_end)
{
  Starter_Process starter(with(""));
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  Control_Client fitting(path());
  Control_Client long_one(path());
  Control_Client cut_off(path());
  Control_Client slow(path());
  ASSERT_TRUE(slow.send("{\"command\":"));

  ASSERT_TRUE(fitting.send(std::string(65536, ' ') + '\n'));
  EXPECT_EQ(refusal("The request is no JSON object in a line."), json::parse(fitting.line(), nullptr, false));
  EXPECT_EQ("running", fitting.command("status")["state"]);
  (void)long_one.send(std::string(65537, ' '));
  EXPECT_EQ(refusal("The request has more than 65536 bytes."), json::parse(long_one.line(), nullptr, false));
  EXPECT_TRUE(long_one.is_closed());
  ASSERT_TRUE(cut_off.send("{\"command\":\"status\"}"));
  cut_off.end_sending();
  EXPECT_EQ(refusal("The request does not end with a line feed."), json::parse(cut_off.line(), nullptr, false));
  EXPECT_TRUE(cut_off.is_closed());
  EXPECT_EQ(refusal("The request has not been sent to its end within 10 seconds."),
            json::parse(slow.line(), nullptr, false));
  EXPECT_TRUE(slow.is_closed());
  end(starter);
}

// ---- The socket

TEST_F(control, makes_a_socket_for_its_owner_and_removes_it)
{
  const mode_t before = ::umask(0);
  Starter_Process starter(with(""));
  ::umask(before);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  struct stat status = {};
  ASSERT_EQ(0, ::stat(path().c_str(), &status));
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(0600u, status.st_mode & 07777);
  starter.send(SIGHUP);
  EXPECT_TRUE(starter.wait_for_event_loop());
  EXPECT_EQ(0, ::stat(path().c_str(), &status));
  end(starter);
  EXPECT_NE(0, ::stat(path().c_str(), &status));
}

TEST_F(control, listens_in_the_runtime_directory)
{
  Start_Options options;
  options.env["RUNTIME_DIRECTORY"] = dir_.path() + ":/nowhere";
  Starter_Process starter({"-f", dir_.write("x.conf", companion_directive("control"))}, options);
  Control_Client client(path());
  EXPECT_EQ(true, client.command("status")["ok"]) << starter.log();
  end(starter);
}

TEST_F(control, replaces_the_socket_of_a_process_that_is_gone)
{
  {
    Starter_Process killed(with(""));
    ASSERT_TRUE(killed.wait_for_event_loop());
    killed.send(SIGKILL);
    (void)killed.wait_status();
  }
  ASSERT_EQ(0, ::access(path().c_str(), F_OK));

  Starter_Process starter(with(""));
  Control_Client client(path());
  EXPECT_EQ(starter.pid(), client.command("status")["pid"]) << starter.log();
  end(starter);
}

TEST_F(control, leaves_the_socket_of_another_process_and_other_files_alone)
{
  Starter_Process first(with(""));
  ASSERT_TRUE(first.wait_for_event_loop());
  Starter_Process second(with(""));
  EXPECT_TRUE(second.wait_for_record("Failed to start the control at " + path() + ", errno=98, ")) << second.log();
  ASSERT_TRUE(second.wait_for_event_loop());
  end(second);
  {
    Control_Client client(path());
    EXPECT_EQ(first.pid(), client.command("status")["pid"]);
  }
  end(first);

  dir_.write("control.socket", "a file");
  Starter_Process third(with(""));
  EXPECT_TRUE(third.wait_for_record("Failed to start the control at " + path() + ", errno=17, ")) << third.log();
  ASSERT_TRUE(third.wait_for_event_loop());
  end(third);
  EXPECT_EQ("a file", read_file(path()));
}

// The mode of the socket keeps other accounts out already; here it is opened, as by mistake.
TEST_F(control, refuses_another_account)
{
  NEEDS(::geteuid() == 0, "root");
  Starter_Process starter(with(""));
  ASSERT_TRUE(starter.wait_for_event_loop());
  ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0777));
  const auto answer_of_stranger = [this] {
    return output_of("setpriv --reuid 65534 --clear-groups sh -c 'echo {\\\"command\\\":\\\"status\\\"} | nc -N -U " +
                     path() + "' 2>&1 || true");
  };

  EXPECT_THAT(answer_of_stranger(), testing::Not(HasSubstr("\"ok\"")));
  ASSERT_EQ(0, ::chmod(path().c_str(), 0777));
  EXPECT_EQ(refusal("Only root and the user of the process may give commands."),
            json::parse(answer_of_stranger(), nullptr, false));
  end(starter);
}

TEST_F(control, serves_root_and_the_account_that_it_runs_as)
{
  NEEDS(::geteuid() == 0, "root");
  ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0777));
  Start_Options options;
  options.uid = 65534;
  options.gid = 65534;
  Starter_Process starter(with(""), options);
  Control_Client client(path());

  EXPECT_EQ(true, client.command("status")["ok"]) << starter.log();
  const std::string answer =
      output_of("setpriv --reuid 65534 --clear-groups sh -c 'echo {\\\"command\\\":\\\"status\\\"} | "
                "nc -N -U " +
                path() + "'");
  EXPECT_EQ(true, json::parse(answer, nullptr, false)["ok"]) << answer;
  end(starter);
}

TEST_F(control, drops_connections_above_its_limit_and_serves_the_others)
{
  Starter_Process starter(with(""));
  ASSERT_TRUE(starter.wait_for_event_loop());
  std::vector<std::unique_ptr<Control_Client>> clients;
  for (int i = 0; i < 64; ++i) {
    clients.push_back(std::make_unique<Control_Client>(path()));
    ASSERT_EQ(true, clients.back()->command("services")["ok"]) << i;
  }

  Control_Client late(path());
  EXPECT_EQ(refusal("There are too many connections."), json::parse(late.line(), nullptr, false));
  EXPECT_TRUE(late.is_closed());
  clients.pop_back();
  EXPECT_TRUE(wait_until([this] { return Control_Client(path()).command("services")["ok"] == true; }));
  EXPECT_EQ(true, clients[0]->command("services")["ok"]);
  end(starter);
}

TEST(control_arguments, are_refused_with_one_error_record)
{
  const std::tuple<const char*, const char*> cases[] = {
      {"-s", "-s needs a value"},
      {"-Z", "there is no option -Z"},
      {"word", "'word' is no option"},
      {"", "there is neither -s nor the environment variable RUNTIME_DIRECTORY"}};
  for (const auto& [params, reason] : cases) {
    SCOPED_TRACE(params);
    Temp_Dir dir;
    Starter_Process starter({"-f", dir.write("x.conf", companion_directive("control", params))});
    EXPECT_TRUE(starter.wait_for_record("Failed to start the control: " + std::string(reason) + '\n')) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop());
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    EXPECT_EQ(1u, starter.count("Failed to start the control")) << starter.log();
  }
}

INSTANTIATE_TEST_SUITE_P(loops, control_of_each_loop, testing::ValuesIn(some_loops()), loop_name);
