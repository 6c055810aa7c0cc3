// Prometheus itself, and the files that are made for it. The server runs on a port of the loopback address, from start
// to end of a test.

#include "tests/support/command.h"
#include "tests/support/companions.h"
#include "tests/support/requirements.h"
#include "tests/support/scrape.h"
#include "tests/support/starter_process.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

static const std::string FILES = TESTS_PROMETHEUS_DIR;

namespace
{
class prometheus : public testing::Test
{
protected:
  void SetUp() override { NEEDS(has_tool("promtool") && has_tool("prometheus"), "the package prometheus"); }
};

/// The server, with a configuration of the test. The destructor ends it.
class Prometheus_Server
{
public:
  explicit Prometheus_Server(const std::string& config)
  {
    const std::string file = dir_.write("prometheus.yml", config);
    const std::string log = dir_.write("log", "");
    pid_ = fork();
    if (pid_ != 0)
      return;
    const int fd = ::open(log.c_str(), O_WRONLY | O_APPEND);
    (void)::dup2(fd, STDOUT_FILENO);
    (void)::dup2(fd, STDERR_FILENO);
    // The server takes a free port, which nothing but the system tells.
    (void)::execlp("prometheus", "prometheus", ("--config.file=" + file).c_str(),
                   ("--storage.tsdb.path=" + dir_ / "data").c_str(), "--web.listen-address=127.0.0.1:0",
                   static_cast<char*>(nullptr));
    _exit(127);
  }

  ~Prometheus_Server()
  {
    (void)::kill(pid_, SIGKILL);
    (void)::waitpid(pid_, nullptr, 0);
  }

  Prometheus_Server(const Prometheus_Server&) = delete;
  Prometheus_Server& operator=(const Prometheus_Server&) = delete;

  std::string log() const { return read_file(dir_ / "log"); }

  /// Wait until the server listens, and return where. Empty if it does not.
  std::string address() const
  {
    std::string found;
    const bool is_found = wait_until([&] {
      const std::string port = run_for_stdout("ss -Hltnp | grep 'pid=" + std::to_string(pid_) +
                                              ",' | sed -E 's/.*127.0.0.1:([0-9]+) .*/\\1/'")
                                   .output;
      found = "127.0.0.1:" + without_newline(port);
      return !port.empty();
    });
    return is_found ? found : "";
  }

private:
  Temp_Dir dir_;
  pid_t pid_ = -1;
};
} // namespace

// ---- The server

static std::string query(const std::string& server, const std::string& expression)
{
  return ask(server, "GET /api/v1/query?query=" + expression + " HTTP/1.0\r\n\r\n");
}

TEST_F(prometheus, scrapes_a_component_and_answers_queries_about_it)
{
  NEEDS(has_tool("ss"), "ss, from the package iproute2");
  const Temp_Dir dir;
  Start_Options options;
  options.env["COMPONENT"] = "demo";
  Starter_Process starter({"-f", dir.write("x.conf", companion_directive("metrics") +
                                                         dynamic_directive("Counted", "counted", "_make_Counted"))},
                          options);
  const std::string address = metrics_address(starter);
  ASSERT_NE("", address);

  std::string config = read_file(FILES + "/prometheus.yml");
  config = std::regex_replace(config, std::regex("127\\.0\\.0\\.1:9464"), address);
  config = std::regex_replace(config, std::regex("15s"), "1s");
  config = std::regex_replace(config, std::regex("starter-alerts.yml"), FILES + "/starter-alerts.yml");
  const Prometheus_Server server(config);
  const std::string api = server.address();
  ASSERT_NE("", api) << server.log();

  EXPECT_TRUE(wait_until([&] {
    return query(api, "starter_info").find("\"component\":\"demo\"") != std::string::npos;
  })) << query(api, "starter_info")
      << server.log();
  EXPECT_THAT(query(api, "up"), testing::HasSubstr("\"job\":\"starter\"},\"value\":["));
  EXPECT_THAT(query(api, "counted_inits_total"), testing::HasSubstr(",\"1\"]"));
  EXPECT_TRUE(wait_until([&] {
    return query(api, "rate(starter_loop_lag_seconds_count[10s])>0").find("\"value\":[") != std::string::npos;
  }));
  const std::string rules = ask(api, "GET /api/v1/rules HTTP/1.0\r\n\r\n");
  EXPECT_THAT(rules, testing::HasSubstr("StarterLoopHangs"));
}

// ---- The files

TEST_F(prometheus, takes_the_configuration_and_the_alerts)
{
  const Ended config = run("promtool check config " + FILES + "/prometheus.yml");
  EXPECT_EQ(0, config.status) << config.output;
  const Ended rules = run("promtool check rules " + FILES + "/starter-alerts.yml");
  EXPECT_EQ(0, rules.status) << rules.output;
  EXPECT_THAT(rules.output, testing::HasSubstr("5 rules found"));
}

TEST_F(prometheus, raises_each_alert_for_what_it_is_made_for_only)
{
  const Ended result = run("promtool test rules " + FILES + "/starter-alerts-test.yml");
  EXPECT_EQ(0, result.status) << result.output;

  const std::regex name("alert: (\\w+)");
  const std::string alerts = read_file(FILES + "/starter-alerts.yml");
  const std::string tests = read_file(FILES + "/starter-alerts-test.yml");
  for (std::sregex_iterator i(alerts.begin(), alerts.end(), name); i != std::sregex_iterator(); ++i)
    EXPECT_THAT(tests, testing::HasSubstr("alertname: " + (*i)[1].str() + "\n        exp_alerts:\n          - "));
}

// The names of metrics in `text`, without what the parts of a histogram add.
static std::set<std::string> names_in(const std::string& text)
{
  const std::regex name("\\b((?:starter|process)_[a-z_]+?)(?:_bucket|_count|_sum)?\\b");
  std::set<std::string> names;
  for (std::sregex_iterator i(text.begin(), text.end(), name); i != std::sregex_iterator(); ++i)
    names.insert((*i)[1]);
  return names;
}

TEST_F(prometheus, finds_every_metric_of_the_alerts_and_of_the_dashboard)
{
  const Temp_Dir dir;
  Starter_Process starter(
      {"-f", dir.write("x.conf", companion_directive("metrics") +
                                     dynamic_directive("Guard", "starter_guard", "_make_Fake_Guard"))});
  const std::string address = metrics_address(starter);
  std::vector<std::string> served;
  ASSERT_TRUE(wait_until([&] {
    served = metric_names(scrape(address));
    return testing::Value(served, testing::Contains("starter_stalls_total"));
  }));

  for (const char* const file : {"/starter-alerts.yml", "/starter-dashboard.json"}) {
    const std::set<std::string> names = names_in(read_file(FILES + file));
    EXPECT_LE(5u, names.size()) << file;
    for (const std::string& name : names)
      EXPECT_THAT(served, testing::Contains(name)) << file;
  }
}

// Grafana gives the dashboard to a browser, which shows nothing for an expression that Prometheus refuses.
TEST_F(prometheus, understands_every_expression_of_the_dashboard)
{
  NEEDS(has_tool("jq"), "jq");
  const std::string dashboard = FILES + "/starter-dashboard.json";
  EXPECT_EQ("[\"datasource\",\"job\",\"instance\"]\n", output_of("jq -c '[.templating.list[].name]' " + dashboard));

  std::string rules = "groups:\n  - name: dashboard\n    rules:\n";
  const std::vector<std::string> expressions = lines_of(output_of("jq -r '.panels[].targets[].expr' " + dashboard));
  EXPECT_LE(12u, expressions.size());
  for (std::size_t i = 0; i < expressions.size(); ++i)
    rules += "      - record: panel:" + std::to_string(i) + "\n        expr: '" +
             std::regex_replace(expressions[i], std::regex("\\$__rate_interval"), "1m") + "'\n";
  const Temp_Dir dir;
  const Ended result = run("promtool check rules " + dir.write("rules.yml", rules));
  EXPECT_EQ(0, result.status) << result.output;
}
