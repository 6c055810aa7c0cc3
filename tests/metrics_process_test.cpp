// The companion "metrics" in the program.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/fake_journal.h"
#include "tests/support/hanger.h"
#include "tests/support/loops.h"
#include "tests/support/requirements.h"
#include "tests/support/scrape.h"
#include "tests/support/wait_until.h"

#include "starter/product_version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <signal.h>
#include <sys/resource.h>

using testing::HasSubstr;

namespace
{
class metrics_process : public testing::Test
{
protected:
  // The arguments that load the companion first, and then what `directives` name.
  std::vector<std::string> loaded_before(const std::string& directives, std::vector<std::string> args = {},
                                         const char* params = nullptr) const
  {
    configure(companion_directive("metrics", params) + directives);
    args.insert(args.end(), {"-f", dir_ / "x.conf"});
    return args;
  }

  void configure(const std::string& directives) const { dir_.write("x.conf", directives); }

  static std::string talker() { return dynamic_directive("Talker", "talker", "_make_Talker"); }

  static std::string counted(const std::string& name = "Counted", const std::string& library = "counted",
                             const std::string& params = "")
  {
    return dynamic_directive(name, library, "_make_Counted", params);
  }

  static void end(Starter_Process& starter)
  {
    starter.send(SIGTERM);
    ASSERT_EQ(0, starter.wait_status()) << starter.log();
  }

  // Wait until the series has the value in a scrape.
  static bool wait_for_value(const std::string& address, const std::string& series, double value)
  {
    return !address.empty() &&
           wait_until([&] { return testing::Test::HasFailure() || value_of(scrape(address), series) == value; }) &&
           !testing::Test::HasFailure();
  }

  Temp_Dir dir_;
};

class metrics_of_each_loop : public metrics_process, public testing::WithParamInterface<Loop>
{
};
} // namespace

// ---- The metrics

// The names of the metrics in the manual page.
static std::vector<std::string> names_in_manual()
{
  std::vector<std::string> names;
  for (const std::string& line : lines_of(read_file(TESTS_METRICS_PAGE)))
    if (line.rfind(".It Li starter_", 0) == 0 || line.rfind(".It Li process_", 0) == 0) {
      std::istringstream words(line.substr(7));
      for (std::string word; words >> word && word != "Ns";)
        if (word != ",")
          names.push_back(word);
    }
  std::sort(names.begin(), names.end());
  return names;
}

TEST_F(metrics_process, are_those_of_the_manual_page)
{
  Starter_Process starter(loaded_before(dynamic_directive("Guard", "starter_guard", "_make_Fake_Guard"),
                                        {"--reactor", "tp", "--threads", "2"}));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(wait_for_value(address, "starter_stalls_total", 7)) << starter.log();

  EXPECT_LE(14u, names_in_manual().size());
  EXPECT_EQ(names_in_manual(), metric_names(scrape(address)));
  end(starter);
}

TEST_F(metrics_process, have_nothing_that_promtool_finds_fault_with)
{
  NEEDS(has_tool("promtool"), "promtool, from the package prometheus");
  Starter_Process starter(loaded_before(counted() + dynamic_directive("Guard", "starter_guard", "_make_Fake_Guard")));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(wait_for_value(address, "starter_stalls_total", 7)) << starter.log();

  EXPECT_EQ("", output_of("promtool check metrics <" + dir_.write("scrape", scrape(address))));
  end(starter);
}

TEST_P(metrics_of_each_loop, tell_the_program_its_loop_and_its_services)
{
  Start_Options options;
  options.env["COMPONENT"] = "demo \"1\"";
  Starter_Process starter(loaded_before(talker(), GetParam().args), options);
  const std::string address = metrics_address(starter);
  const std::string kind = GetParam().args.size() > 1 ? GetParam().args[1] : "select";
  const unsigned threads = GetParam().threads > 2 ? GetParam().threads - 1 : 1;

  EXPECT_TRUE(wait_for_value(address,
                             "starter_info{component=\"demo \\\"1\\\"\",version=\"" STARTER_VERSION
                             "\",revision=\"" STARTER_REVISION "\",reactor=\"" +
                                 kind + "\",threads=\"" + std::to_string(threads) + "\"}",
                             1))
      << scrape(address);
  const std::string metrics = scrape(address);
  EXPECT_EQ(2, value_of(metrics, "starter_services{state=\"active\"}"));
  EXPECT_EQ(0, value_of(metrics, "starter_services{state=\"suspended\"}"));
  EXPECT_EQ(1,
            value_of(metrics, "starter_service_active{name=\"Talker\",library=\"" + service_library("talker") + "\"}"));
  end(starter);
}

static std::vector<Loop> some_loops()
{
  std::vector<Loop> loops;
  for (const Loop& loop : LOOPS)
    for (const std::string name : {"select", "tp_4", "dev_poll", "dev_poll_2", "priority"})
      if (loop.name == name)
        loops.push_back(loop);
  return loops;
}

INSTANTIATE_TEST_SUITE_P(loops, metrics_of_each_loop, testing::ValuesIn(some_loops()), loop_name);

TEST_F(metrics_process, agree_with_what_the_system_tells_of_the_process)
{
  Starter_Process starter(loaded_before(""));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::string metrics = scrape(address);

  const auto count =
      std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(starter.pid()) + "/fd"),
                    std::filesystem::directory_iterator());
  EXPECT_THAT(value_of(metrics, "process_open_fds"), testing::AnyOf(count, count + 1)) << "that of the scrape may go";
  const std::string limits = read_file("/proc/" + std::to_string(starter.pid()) + "/limits");
  EXPECT_EQ(std::atof(limits.c_str() + limits.find("Max open files") + 14), value_of(metrics, "process_max_fds"));
  EXPECT_LT(1e6, value_of(metrics, "process_resident_memory_bytes"));
  EXPECT_LT(value_of(metrics, "process_resident_memory_bytes"), value_of(metrics, "process_virtual_memory_bytes"));
  EXPECT_LE(0, value_of(metrics, "process_cpu_seconds_total"));
  const double up = value_of(metrics, "starter_up_seconds");
  EXPECT_LE(0, up);
  EXPECT_NEAR(static_cast<double>(::time(nullptr)) - up, value_of(metrics, "process_start_time_seconds"), 60);
  end(starter);
}

TEST_F(metrics_process, tell_which_services_are_suspended)
{
  Starter_Process starter(loaded_before(talker() + "suspend Talker\n"));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  EXPECT_TRUE(wait_for_value(address, "starter_services{state=\"suspended\"}", 1)) << scrape(address);
  EXPECT_EQ(0, value_of(scrape(address),
                        "starter_service_active{name=\"Talker\",library=\"" + service_library("talker") + "\"}"));
  end(starter);
}

// ---- Records, signals and reloads

// The scribe writes them in turn, some priorities more than once.
TEST_F(metrics_process, count_each_record_by_its_priority)
{
  for (const bool is_journal_first : {true, false}) {
    SCOPED_TRACE(is_journal_first);
    Fake_Journal journal(dir_ / "journal");
    const std::string to_journal = companion_directive("journal", ("-s " + dir_ / "journal" + " -e all").c_str());
    const std::string scribe = dynamic_directive("Scribe", "scribe", "_make_Scribe", "failure");
    configure(is_journal_first ? to_journal + companion_directive("metrics") + scribe
                               : companion_directive("metrics") + to_journal + scribe);
    Starter_Process starter({"-f", dir_ / "x.conf"}, probed());
    const std::string address = metrics_address(starter);
    ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
    starter.send(SIGHUP);
    ASSERT_TRUE(wait_for_value(address, "starter_reloads_total", 1)) << starter.log();
    const std::string before = scrape(address);
    end(starter);

    const std::vector<Record> records = starter.records();
    std::size_t first = 0; // after the one that tells the address
    while (records[first].text.find("The metrics are at") == std::string::npos)
      ++first;
    double infos = 0;
    double errors = 0;
    for (std::size_t i = first + 1; i < records.size(); ++i) {
      infos += records[i].priority == LM_INFO && records[i].text.find("Signal 15") == std::string::npos ? 1 : 0;
      errors += records[i].priority == LM_ERROR ? 1 : 0;
    }
    EXPECT_LT(0, infos);
    EXPECT_LT(0, errors);
    EXPECT_EQ(infos, value_of(before, "starter_records_total{priority=\"info\"}")) << starter.log();
    EXPECT_EQ(errors, value_of(before, "starter_records_total{priority=\"error\"}")) << starter.log();
    EXPECT_LT(0u, journal.entries_with("Signal 15").size()) << "the journal gets all records as well";
  }
}

TEST_P(metrics_of_each_loop, survive_reloads_at_the_same_address_and_count_signals_once)
{
  Starter_Process starter(loaded_before(counted() + talker(), GetParam().args));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();

  for (unsigned i = 1; i <= 5; ++i) {
    ASSERT_TRUE(starter.wait_for_event_loop());
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("talker init.", i + 1)) << starter.log();
    ASSERT_TRUE(wait_for_value(address, "starter_reloads_total", i)) << starter.log();
    EXPECT_EQ(i, value_of(scrape(address), "starter_signals_total{signal=\"SIGHUP\"}"));
    EXPECT_EQ(i + 1, value_of(scrape(address), "counted_inits_total{kind=\"any\",of=\"all\"}"));
  }
  ASSERT_TRUE(starter.wait_for_event_loop());
  starter.send(SIGUSR2);
  EXPECT_TRUE(wait_for_value(address, "starter_signals_total{signal=\"SIGUSR2\"}", 1));
  EXPECT_EQ(1u, starter.count("The metrics are at ")) << starter.log();
  end(starter);
}

// ---- While nothing else goes on

TEST_P(metrics_of_each_loop, are_served_while_every_callback_hangs_and_tell_it_later)
{
  Hanger_Commands hanger;
  std::vector<std::string> args = hanger.make_args(GetParam().args, "-t 3000000", companion_directive("metrics"));
  Starter_Process starter(args);
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const std::string LATE = "starter_loop_lag_seconds_bucket{le=\"0.5\"}";
  const std::string ALL = "starter_loop_lag_seconds_bucket{le=\"+Inf\"}";
  ASSERT_TRUE(wait_until([&] { return value_of(scrape(address), ALL) >= 2; })) << scrape(address);

  ASSERT_TRUE(hanger.hang(starter, HANGS[0]));
  const double up = value_of(scrape(address), "starter_up_seconds");
  ASSERT_TRUE(wait_until([&] { return value_of(scrape(address), "starter_up_seconds") > up + 2; }));
  const std::string hanging = scrape(address);
  ASSERT_TRUE(hanger.release(starter));

  if (GetParam().threads < 3) { // of a pool, another thread goes on
    ASSERT_TRUE(wait_until([&] { return value_of(scrape(address), ALL) > value_of(hanging, ALL) + 1; }));
    const std::string metrics = scrape(address);
    EXPECT_LT(value_of(metrics, LATE), value_of(metrics, ALL)) << metrics;
    EXPECT_LT(value_of(hanging, "starter_loop_lag_seconds_sum") + 1, value_of(metrics, "starter_loop_lag_seconds_sum"));
  }
  end(starter);
}

TEST_P(metrics_of_each_loop, are_served_during_a_reload_with_the_services_of_before)
{
  Starter_Process starter(loaded_before(
      talker() + dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", "reload work 3000"), GetParam().args));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  ASSERT_TRUE(wait_for_value(address, "starter_services{state=\"active\"}", 3)) << scrape(address);

  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("linger reload.")) << starter.log();
  const std::string metrics = scrape(address);
  EXPECT_EQ(0u, starter.count("lingered reload.")) << "the scrape has waited for the reload";
  EXPECT_EQ(3, value_of(metrics, "starter_services{state=\"active\"}"));
  EXPECT_EQ(0, value_of(metrics, "starter_reloads_total"));

  EXPECT_TRUE(wait_for_value(address, "starter_reloads_total", 1));
  end(starter);
}

TEST_P(metrics_of_each_loop, are_served_while_a_service_is_initialised_with_the_services_of_before)
{
  const std::string lingerer = dynamic_directive("Lingerer", "lingerer", "_make_Lingerer", "init work 2000");
  Starter_Process starter(loaded_before(talker() + lingerer, GetParam().args));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_record("linger init.")) << starter.log();
  EXPECT_EQ(0, value_of(scrape(address), "starter_services{state=\"active\"}")) << "nothing is known yet";
  ASSERT_TRUE(wait_for_value(address, "starter_services{state=\"active\"}", 3)) << scrape(address);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("linger init.", 2)) << starter.log();
  const std::string metrics = scrape(address);
  EXPECT_EQ(1u, starter.count("lingered init.")) << "the scrape has waited for the reload";
  EXPECT_EQ(3, value_of(metrics, "starter_services{state=\"active\"}"));
  end(starter);
}

// ---- Clients

static void allow_descriptors(rlim_t count)
{
  rlimit limit{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &limit));
  limit.rlim_cur = std::max(limit.rlim_cur, std::min(count, limit.rlim_max));
  ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &limit));
  ASSERT_LE(count, limit.rlim_cur);
}

TEST_F(metrics_process, are_served_whatever_a_thousand_clients_do)
{
  ASSERT_NO_FATAL_FAILURE(allow_descriptors(2000));
  Starter_Process starter(loaded_before(counted("Counted", "counted", "many")));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  const double fds = value_of(scrape(address), "process_open_fds");
  const std::string large(100000, 'x');

  std::vector<Scrape_Client> clients;
  for (int i = 0; i < 1000; ++i) {
    clients.emplace_back(address);
    ASSERT_TRUE(clients.back().is_connected());
    const char* const texts[] = {"", "GET /met", "\x16\x03\x01\xff\n\n\n", "GET /metrics HTTP/1.1\r\n\r\n", "\r\n"};
    (void)clients.back().send(i % 6 == 5 ? large : texts[i % 6]); // those that want an answer do not read it
    if (i % 100 == 99) {
      EXPECT_EQ(9999, value_of(scrape(address), "counted_many_total{path=\"/some/path/9999\"}")) << i;
    }
  }
  EXPECT_GE(fds + 64, value_of(scrape(address), "process_open_fds"));
  for (int i = 0; i < 100; ++i)
    (void)clients[clients.size() - 1 - static_cast<std::size_t>(i)].send("G");
  clients.clear();

  EXPECT_TRUE(wait_until([&] { return value_of(scrape(address), "process_open_fds") <= fds; }));
  end(starter);
}

TEST_F(metrics_process, refuse_a_request_that_is_too_large)
{
  Starter_Process starter(loaded_before(""));
  const std::string address = metrics_address(starter);

  EXPECT_THAT(ask(address, "GET /metrics HTTP/1.1\r\nX: " + std::string(9000, 'x')), HasSubstr("HTTP/1.1 431 "));
  EXPECT_THAT(ask(address, "GET / HTTP/1.1\r\n\r\n"), HasSubstr("HTTP/1.1 404 "));
  end(starter);
}

TEST_F(metrics_process, put_out_a_client_that_takes_its_time)
{
  Starter_Process starter(loaded_before(""));
  const std::string address = metrics_address(starter);
  const Scrape_Client slow(address);
  ASSERT_TRUE(slow.send("GET /metrics"));

  EXPECT_EQ("", slow.read_all());
  EXPECT_TRUE(wait_until([&] { return !slow.send("x"); }));
  end(starter);
}

// ---- Addresses

TEST_F(metrics_process, are_served_at_a_socket_of_the_file_system_that_is_removed_at_the_end)
{
  const std::string path = dir_ / "metrics";
  Starter_Process starter(loaded_before("", {}, ("-l unix:" + path).c_str()));
  ASSERT_EQ("unix:" + path, metrics_address(starter));

  EXPECT_EQ(0, value_of(scrape("unix:" + path), "starter_reloads_total"));
  starter.send(SIGHUP);
  EXPECT_TRUE(wait_for_value("unix:" + path, "starter_reloads_total", 1));
  end(starter);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(metrics_process, replace_the_socket_of_a_process_that_was_killed)
{
  const std::string path = dir_ / "metrics";
  const std::vector<std::string> args = loaded_before("", {}, ("-l unix:" + path).c_str());
  {
    Starter_Process killed(args);
    ASSERT_NE("", metrics_address(killed));
    killed.send(SIGKILL);
    ASSERT_EQ(-SIGKILL, killed.wait_status());
    ASSERT_TRUE(std::filesystem::exists(path));
  }
  Starter_Process starter(args);
  ASSERT_EQ("unix:" + path, metrics_address(starter)) << starter.log();

  Starter_Process second(args);
  EXPECT_TRUE(second.wait_for_record("Failed to start the metrics at unix:" + path + ", errno=98, "));
  EXPECT_EQ(0, value_of(scrape("unix:" + path), "starter_reloads_total"));
}

TEST_F(metrics_process, move_with_a_reload_that_changes_the_address)
{
  Starter_Process starter(loaded_before(talker()));
  const std::string first = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  configure(companion_directive("metrics", ("-l unix:" + dir_ / "metrics").c_str()) + talker());

  starter.send(SIGHUP);
  const std::string second = metrics_address(starter, 2);
  EXPECT_EQ("unix:" + dir_ / "metrics", second);
  EXPECT_TRUE(wait_for_value(second, "starter_reloads_total", 1));
  EXPECT_FALSE(Scrape_Client(first).is_connected());
  end(starter);
}

TEST_F(metrics_process, end_with_the_reload_that_removes_them_and_come_back_with_another)
{
  for (const std::string& change : {std::string("remove Metrics\n"), companion_directive("metrics", "-l nowhere")}) {
    SCOPED_TRACE(change);
    Starter_Process starter(loaded_before(talker()));
    const std::string first = metrics_address(starter);
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    configure(change + talker());

    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_threads(1)) << starter.log();
    EXPECT_FALSE(Scrape_Client(first).is_connected());

    ASSERT_TRUE(starter.wait_for_event_loop());
    configure(companion_directive("metrics") + talker());
    starter.send(SIGHUP);
    const std::string second = metrics_address(starter, 2);
    ASSERT_TRUE(starter.wait_for_record("talker init.", 3)) << starter.log();
    EXPECT_EQ(1, value_of(scrape(second), "starter_signals_total{signal=\"SIGHUP\"}")) << "that which removed them";
    EXPECT_LE(3, value_of(scrape(second), "starter_records_total{priority=\"info\"}"));
    end(starter);
  }
}

TEST_F(metrics_process, refuse_wrong_arguments_with_one_error_record)
{
  const std::tuple<const char*, const char*> cases[] = {
      {"-l", ": -l needs a value"},
      {"-l 9464", ": -l takes ADDRESS:PORT or unix:/PATH, and not '9464'"},
      {"-l unix:x", ": -l takes ADDRESS:PORT or unix:/PATH, and not 'unix:x'"},
      {"-l unix:/nowhere/at/all", " at unix:/nowhere/at/all, errno=2, No such file or directory"},
      {"9464", ": '9464' is no option"},
  };
  for (const auto& [params, reason] : cases) {
    SCOPED_TRACE(params);
    Starter_Process starter(loaded_before("", {}, params));
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
    EXPECT_EQ(1u, starter.count(std::string("Failed to start the metrics") + reason + '\n')) << starter.log();
    EXPECT_EQ(1u, starter.count("Failed to start")) << starter.log();
    EXPECT_EQ(1u, starter.threads().size());
    end(starter);
  }
}

TEST_F(metrics_process, are_not_served_twice)
{
  std::string second = companion_directive("metrics");
  second.replace(second.find("dynamic Metrics"), 15, "dynamic Other");
  Starter_Process starter(loaded_before(second));
  const std::string address = metrics_address(starter);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  EXPECT_EQ(1u, starter.count("Failed to start the metrics at 127.0.0.1:0, errno=114, ")) << starter.log();
  EXPECT_EQ(0, value_of(scrape(address), "starter_reloads_total"));
  end(starter);
}

// ---- The thread

TEST_F(metrics_process, are_served_by_a_thread_that_takes_no_signal_but_faults)
{
  Starter_Process starter(loaded_before(""));
  ASSERT_NE("", metrics_address(starter));
  ASSERT_TRUE(starter.wait_for_threads(2));

  const pid_t tid = starter.threads().back();
  ASSERT_TRUE(wait_until([&] { return process_status_field(tid, "Name") == "metrics"; }));
  // The thread blocks all signals for a moment when it looks for metrics.
  std::vector<int> blocked;
  ASSERT_TRUE(wait_until([&] {
    blocked = signals_in_mask(process_status_field(tid, "SigBlk"));
    return std::find(blocked.begin(), blocked.end(), SIGSEGV) == blocked.end();
  }));
  for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR2, SIGALRM, SIGPIPE})
    EXPECT_THAT(blocked, testing::Contains(signo));
  for (const int fault : {SIGILL, SIGSEGV, SIGFPE, SIGBUS, SIGABRT})
    EXPECT_THAT(blocked, testing::Not(testing::Contains(fault)));
  end(starter);
}

// ---- Metrics of services

TEST_F(metrics_process, of_services_are_the_same_whatever_the_order_of_loading)
{
  const std::string both = counted() + counted("Twin", "counted_twin");
  for (const std::string& directives : {companion_directive("metrics") + both, both + companion_directive("metrics"),
                                        counted() + companion_directive("metrics") + counted("Twin", "counted_twin")}) {
    SCOPED_TRACE(directives);
    configure(directives);
    Starter_Process starter({"-f", dir_ / "x.conf"});
    const std::string address = metrics_address(starter);
    ASSERT_TRUE(starter.wait_for_record("counted 2 at ")) << starter.log();

    const std::string log = starter.log();
    const std::string object = log.substr(log.find("counted 1 at ") + 13,
                                          log.find(".\n", log.find("counted 1 at ")) - log.find("counted 1 at ") - 13);
    EXPECT_THAT(log, HasSubstr("counted 2 at " + object + ".\n"));
    const std::string metrics = scrape(address);
    EXPECT_EQ(2, value_of(metrics, "counted_inits_total{kind=\"any\",of=\"all\"}"));
    EXPECT_EQ(42.5, value_of(metrics, "counted_last_seconds"));
    EXPECT_EQ(2, value_of(metrics, "counted_size_bytes_bucket{le=\"10\"}"));
    EXPECT_EQ(0, value_of(metrics, "counted_size_bytes_bucket{le=\"1\"}"));
    end(starter);
  }
}

TEST_F(metrics_process, of_services_count_without_the_companion_and_after_their_removal)
{
  configure(counted());
  Starter_Process starter({"-f", dir_ / "x.conf"});
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  configure("remove Counted\n" + talker());
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("talker init.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop());

  configure(companion_directive("metrics") + counted("Twin", "counted_twin"));
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("counted 2 at ")) << starter.log();
  EXPECT_EQ(2, value_of(scrape(metrics_address(starter)), "counted_inits_total{kind=\"any\",of=\"all\"}"));
  end(starter);
}
