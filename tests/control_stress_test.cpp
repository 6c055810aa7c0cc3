// Many commands to the companion "control": against hang-ups at random moments and load, for good and broken
// configurations, and from clients that misbehave. STARTER_STRESS_COUNT sets the number of runs of each case; each run
// of the first test is ten commands.

#include "tests/support/companions.h"
#include "tests/support/control_client.h"
#include "tests/support/loops.h"
#include "tests/support/stress.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <signal.h>

using nlohmann::json;

namespace
{
using Case = std::tuple<Loop, Load>;

std::vector<Loop> some_loops()
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    for (const std::string name :
         {"select_1", "select_4", "tp_4", "dev_poll_1", "dev_poll_4", "priority_1", "priority_4"})
      if (loop.name == name)
        loops.push_back(loop);
  return loops;
}

std::string case_name(const testing::TestParamInfo<Case>& info)
{
  return std::string(std::get<Loop>(info.param).name) + '_' + std::get<Load>(info.param).name;
}

class control_stress : public testing::TestWithParam<Case>, protected Stress
{
protected:
  std::string path() const { return dir_ / "control.socket"; }

  static std::string talker(const std::string& name, const std::string& factory = "_make_Talker")
  {
    return dynamic_directive(name, "talker", factory, name);
  }

  bool is_pool() const { return std::get<Loop>(GetParam()).threads > 1; }

  // Whole, at any moment.
  void configure(const std::string& directives) const
  {
    std::string load;
    if (const unsigned bytes = std::get<Load>(GetParam()).bytes; bytes != 0)
      load = dynamic_directive("Busy", "busy", "_make_Busy", std::to_string(bytes));
    dir_.write("new", companion_directive("control", ("-s " + path()).c_str()) + load + directives);
    ASSERT_EQ(0, std::rename((dir_ / "new").c_str(), (dir_ / "x.conf").c_str()));
  }

  std::vector<std::string> args() const
  {
    std::vector<std::string> all = std::get<Loop>(GetParam()).args;
    all.insert(all.end(), {"-f", dir_ / "x.conf"});
    return all;
  }

  Temp_Dir dir_;
};

bool has_pending_hang_up(const Starter_Process& starter)
{
  for (const char* const field : {"SigPnd", "ShdPnd"}) {
    const std::vector<int> signals = signals_in_mask(starter.status_field(field));
    if (std::count(signals.begin(), signals.end(), SIGHUP) != 0)
      return true;
  }
  return false;
}

// Sends the hang-up that an operator would send, whose record any thread may write. In a pool, a thread of the pool
// takes it if the main thread holds signals back, as it does while it reloads or writes a record, or has another one to
// handle, and can end by it.
void hang_up(Starter_Process& starter, bool is_pool)
{
  const auto can_take_it = [&starter] { return !has_pending_hang_up(starter) && starter.wait_for_event_loop(); };
  EXPECT_TRUE(!is_pool || starter.wait_until(can_take_it));
  starter.send(SIGHUP);
  EXPECT_TRUE(!is_pool || starter.wait_until([&starter] { return !has_pending_hang_up(starter); }));
}

// One client, which changes a service of its own.
class Customer
{
public:
  // Changes services and asks for back traces only under the lock, unless it is null.
  Customer(const std::string& path, const std::string& name, const std::string& directive, unsigned seed,
           std::mutex* engaging)
      : client_(path), name_(name), directive_(directive), random_(seed), engaging_(engaging)
  {
  }

  // Returns what is wrong, or an empty text.
  std::string ask(unsigned times)
  {
    for (unsigned i = 0; i < times; ++i)
      if (const std::string fault = ask_once(); !fault.empty())
        return fault;
    return "";
  }

private:
  // The sentences that a hang-up can be the reason of: it starts a service anew that was suspended or removed.
  std::string ask_once()
  {
    static const std::set<std::string> reasons = {"The service '*' is suspended already.",
                                                  "The service '*' is not suspended.", "There is no service '*'.",
                                                  "There is a service '*' already."};
    static const char* const changes[] = {"suspend", "resume", "remove", "restart"};
    const unsigned long kind = random_() % 10;

    const bool engages_main_thread = kind <= 5 || kind == 9;
    const auto lock =
        engages_main_thread && engaging_ ? std::unique_lock<std::mutex>(*engaging_) : std::unique_lock<std::mutex>();
    json answer;
    if (kind < 4) {
      answer = client_.command(changes[kind], "name", name_);
      const bool is_right = answer["ok"] == true || reasons.count(general(answer["error"])) != 0;
      return is_right ? "" : changes[kind] + (": " + answer.dump());
    }
    if (kind == 4) {
      answer = client_.command("load", "directive", directive_);
      const bool is_right = answer["ok"] == true || general(answer["error"]) == "There is a service '*' already.";
      return is_right ? "" : "load: " + answer.dump();
    }
    if (kind == 5) {
      answer = client_.command("reload");
      const bool is_right = answer["ok"] == true && answer["missing"].empty() && answer["failed"].empty();
      return is_right ? "" : "reload: " + answer.dump();
    }
    static const char* const questions[] = {"status", "services", "health", "trace"};
    answer = client_.command(questions[kind - 6]);
    return answer["ok"] == true ? "" : questions[kind - 6] + (": " + answer.dump());
  }

  std::string general(const json& sentence) const
  {
    std::string text = sentence.is_string() ? sentence.get<std::string>() : "";
    if (const std::size_t at = text.find(name_); at != std::string::npos)
      text.replace(at, name_.size(), "*");
    return text;
  }

  Control_Client client_;
  const std::string name_;
  const std::string directive_;
  std::mt19937 random_;
  std::mutex* const engaging_;
};
} // namespace

TEST_P(control_stress, answers_rightly_and_loses_no_service_under_hang_ups_at_any_moment)
{
  enum { CUSTOMERS = 4 };
  const std::string names[CUSTOMERS] = {"A", "B", "C", "D"};
  std::string directives;
  for (const std::string& name : names)
    directives += talker(name);
  configure(directives);
  Starter_Process starter(args());
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(!is_pool() || starter.wait_for_event_loop()) << starter.log();

  std::mutex engaging;
  std::atomic<unsigned> working{CUSTOMERS};
  std::string faults[CUSTOMERS];
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < CUSTOMERS; ++i)
    threads.emplace_back([&, i] {
      Customer customer(path(), names[i], talker(names[i]), i, is_pool() ? &engaging : nullptr);
      faults[i] = customer.ask(static_cast<unsigned>(count_) * 10 / CUSTOMERS);
      --working;
    });
  Control_Client watcher(path());
  while (working != 0) {
    {
      const std::lock_guard<std::mutex> lock(engaging);
      const json reloads = watcher.command("status")["reloads"];
      hang_up(starter, is_pool());
      // It may be due after a change. The next one would come in the middle of it.
      EXPECT_TRUE(!is_pool() || starter.wait_until([&] {
        return !starter.is_running() || watcher.command("status")["reloads"] != reloads;
      }));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(up_to(50000)));
    (void)starter.count("init."); // takes the text out of the pipe
  }
  for (std::thread& thread : threads)
    thread.join();

  for (const std::string& fault : faults)
    EXPECT_EQ("", fault);
  Control_Client client(path());
  EXPECT_EQ(true, client.command("reload")["ok"]);
  json health;
  EXPECT_TRUE(wait_until([&] { return (health = client.command("health"))["status"] == 0; })) << health;
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();
  for (const std::string& name : names)
    EXPECT_EQ(starter.count('\n' + name + " init."), starter.count('\n' + name + " fini.")) << name;
}

TEST_P(control_stress, gives_each_reload_the_right_verdict)
{
  configure(talker("A") + talker("B"));
  Starter_Process starter(args());
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(!is_pool() || starter.wait_for_event_loop()) << starter.log();
  Control_Client client(path());

  for (int i = 0; i < count_; ++i) {
    SCOPED_TRACE(i);
    const bool is_good[] = {up_to(1) == 0, up_to(1) == 0};
    std::string directives;
    json missing = json::array();
    json failed = json::array();
    for (int n : {0, 1}) {
      const std::string name(1, static_cast<char>('A' + n));
      directives += talker(name, is_good[n] ? "_make_Talker" : "_make_Nothing");
      if (is_good[n])
        continue;
      missing.push_back(name);
      failed.push_back({{"name", name}, {"reason", service_library("talker") + ": undefined symbol: _make_Nothing"}});
    }
    configure(directives);
    if (up_to(1) == 0) {
      hang_up(starter, is_pool()); // somebody else reloads too
      pass_time(up_to(2000));
    }

    const json verdict = client.command("reload");
    (void)starter.log(); // a pipe that is full of records would hold the process up
    ASSERT_EQ(missing.empty(), verdict["ok"]) << verdict;
    ASSERT_EQ(missing, verdict["missing"]) << verdict;
    ASSERT_EQ(failed, verdict["failed"]) << verdict;
    for (int n : {0, 1}) {
      const std::string name(1, static_cast<char>('A' + n));
      ASSERT_EQ(is_good[n], std::count(verdict["started"].begin(), verdict["started"].end(), name) == 1) << verdict;
    }
  }
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();
}

TEST_P(control_stress, serves_others_while_clients_misbehave)
{
  configure(talker("A"));
  Starter_Process starter(args());
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  Control_Client good(path());
  ASSERT_TRUE(wait_until([&] { return good.command("health")["status"] == 0; })); // the loop has its descriptors
  const auto count_descriptors = [&starter] {
    const std::string dir = "/proc/" + std::to_string(starter.pid()) + "/fd";
    return std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator());
  };
  const auto descriptors = count_descriptors();

  std::vector<std::thread> threads;
  std::atomic<int> left{count_};
  for (unsigned seed = 0; seed < 4; ++seed)
    threads.emplace_back([this, seed, &left] {
      std::mt19937 random(seed);
      while (left-- > 0) {
        Control_Client client(path());
        const unsigned long size = random() % 3 == 0 ? 70000 : random() % 200;
        std::string garbage;
        for (unsigned long i = 0; i < size; ++i)
          garbage += static_cast<char>(random() % 256);
        switch (random() % 4) {
        case 0: // garbage, perhaps too much of it, and away
          (void)client.send(garbage);
          break;
        case 1: // half a request, and away
          (void)client.send("{\"command\":\"status\"");
          break;
        case 2: // many requests, and no look at the answers
          for (int i = 0; i < 20 && client.send("{\"command\":\"status\"}\n"); ++i)
            ;
          break;
        case 3: // garbage in a line, and an answer to it
          (void)client.send("{\"command\":\"" + garbage.substr(0, 50) + "\"}\n");
          (void)client.line();
          break;
        }
      }
    });
  while (left > 0)
    ASSERT_EQ(true, good.command("services")["ok"]);
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_TRUE(wait_until([&] { return count_descriptors() <= descriptors; })) << count_descriptors();
  EXPECT_TRUE(wait_until([&] { return good.command("health")["status"] == 0; }));
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();
}

INSTANTIATE_TEST_SUITE_P(loops, control_stress,
                         testing::Combine(testing::ValuesIn(some_loops()), testing::ValuesIn(LOADS)), case_name);
