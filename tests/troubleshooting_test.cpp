// Provokes the symptom of each row of the troubleshooting table in doc/operating.md, and looks for the row's record.

#include "tests/support/command.h"
#include "tests/support/fake_systemd.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
struct Row
{
  std::string symptom;
  std::string record; // empty when there is none
  std::string remedy;
};

std::vector<Row> rows()
{
  const std::string guide = read_file(SOURCE_DIR "/doc/operating.md");
  const std::string table = guide.substr(guide.find("| Symptom |"));
  const std::regex row(R"(\n\| ([^|]+) \| ((?:[^|\\]|\\.)+) \| ([^\n]+) \|(?=\n))");
  const std::regex record("`([^`]+)`");

  std::vector<Row> found;
  for (std::sregex_iterator i(table.begin(), table.end(), row); i != std::sregex_iterator(); ++i) {
    const std::string cell = std::regex_replace((*i)[2].str(), std::regex(R"(\\\|)"), "|");
    std::smatch text;
    found.push_back({(*i)[1], std::regex_search(cell, text, record) ? text[1].str() : "", (*i)[3]});
  }
  return found;
}

// A pattern for the record, in which each part that varies is given in angle brackets.
std::regex pattern_of(const std::string& record)
{
  const std::string escaped = std::regex_replace(record, std::regex(R"([.()\[\]|*+?])"), R"(\$&)");
  return std::regex(std::regex_replace(escaped, std::regex("<[a-z]+>"), ".*"));
}

// A port of the loopback interface that is in use as long as the object lives.
class Port_In_Use
{
public:
  Port_In_Use() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
  {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, bind(fd_, reinterpret_cast<const sockaddr*>(&address), size));
    EXPECT_EQ(0, listen(fd_, 1));
    EXPECT_EQ(0, getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size));
    number_ = ntohs(address.sin_port);
  }
  ~Port_In_Use() { close(fd_); }

  Port_In_Use(const Port_In_Use&) = delete;
  Port_In_Use& operator=(const Port_In_Use&) = delete;

  std::string number() const { return std::to_string(number_); }

private:
  const int fd_;
  int number_ = 0;
};

std::string timer(const std::string& arguments, const std::string& name = "Timer")
{
  return "dynamic " + name + " Service_Object * timer:_make_Timer() \"" + arguments + "\"\n";
}

class troubleshooting : public testing::Test
{
protected:
  troubleshooting() { options_.env["LD_LIBRARY_PATH"] = TESTS_EXAMPLE_LIBRARY_DIR; }

  std::string conf(const std::string& content) const { return dir_.write("x.conf", content); }

  // Start the program, do `action` when it is started, and end it. Returns its log.
  std::string log_of(const std::vector<std::string>& args, const std::function<void(Starter_Process&)>& action = {})
  {
    args_ = args;
    Starter_Process starter(args, options_);
    if (starter.wait_for_record("is started.") && action)
      action(starter);
    starter.send(SIGTERM);
    EXPECT_EQ(0, starter.wait_status()) << starter.log();
    return starter.log();
  }

  // Send a hang-up after `change`, and wait until the record of it is there.
  static std::function<void(Starter_Process&)> reload_after(const std::function<void()>& change)
  {
    return [change](Starter_Process& starter) {
      ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
      change();
      starter.send(SIGHUP);
      ASSERT_TRUE(starter.wait_until_idle());
    };
  }

  // The log holds the record of the row, or `shown` when the row has none. The checker finds what the row says it does.
  void expect_row(const std::string& symptom, const std::string& record, const std::string& log,
                  const std::string& shown = "is started.")
  {
    SCOPED_TRACE(symptom);
    for (const Row& row : rows())
      if (row.symptom == symptom && row.record == record) {
        if (record.empty())
          EXPECT_THAT(log, testing::HasSubstr(shown));
        else
          EXPECT_TRUE(std::regex_search(log, pattern_of(record))) << log;
        EXPECT_EQ(row.remedy.find("`starter-check` names") == 0, checker_finds_something());
        provoked_.insert(symptom + record);
        return;
      }
    ADD_FAILURE() << "The table has no row for " << record;
  }

  // The rows that another test provokes.
  void leave_to_other_tests(const std::string& symptom, const std::string& record)
  {
    provoked_.insert(symptom + record);
  }

  void expect_all_rows_provoked() const
  {
    const std::vector<Row> all = rows();
    for (const Row& row : all) {
      EXPECT_EQ(1u, provoked_.count(row.symptom + row.record)) << row.symptom << ": " << row.record;
      EXPECT_THAT(row.remedy, testing::AnyOf(testing::StartsWith("`starter-check` names "),
                                             testing::StartsWith("`starter-check` finds nothing: ")));
    }
    EXPECT_EQ(provoked_.size(), all.size());
  }

  bool checker_finds_something() const
  {
    std::string command;
    for (const auto& [name, value] : options_.env)
      command.append(name).append("='").append(value).append("' ");
    command += TESTS_CHECKER;
    for (const std::string& arg : args_)
      command.append(" '").append(arg).append("'");
    return run(command).status == 1;
  }

  const Temp_Dir dir_;
  Start_Options options_;
  std::vector<std::string> args_;
  std::set<std::string> provoked_; // the rows, each by its symptom and its record
};

const std::string FAULT = "Signal <number> (<name>) caught in [<thread>], the back trace:";
} // namespace

TEST_F(troubleshooting, shows_the_record_of_each_row)
{
  NEEDS(geteuid() == 0, "root, for other accounts");
  const std::string good = conf(timer("-i 60000"));
  const std::string LINE = "ACE (<process>|<thread>) [error <number>] on line <line>: ";
  const Port_In_Use port;

  // ---- Services
  const std::string missing = "a service is missing, others are there";
  expect_row(missing, "",
             log_of({"-f", dir_.write("a", "dynamic T Service_Object * timer:_make_Tmer()\n" + timer("-i 60000"))}),
             "The timer beats");
  expect_row("services are missing from one file on", "", log_of({"-f", "missing.conf", "-f", good}));
  expect_row(missing, "Failed to listen on 127.0.0.1:<port>, errno=98, Address already in use",
             log_of({"-f", dir_.write("b", "dynamic Echo Service_Object * echo:_make_Echo() \"-p " + port.number() +
                                               "\"\n")}));
  expect_row(missing, "Failed to start the timer: it takes -i MSEC, 1 to 3600000",
             log_of({"-f", dir_.write("c", timer("-x 5"))}));
  expect_row("a service has other arguments than a file says", "",
             log_of({"-f", dir_.write("d", timer("-i 60000") + timer("-i 70000"))}), "The timer beats every 70000 ms");
  expect_row("a service has default arguments", LINE + "Unable to find the end of the string",
             log_of({"-f", dir_.write("e", "dynamic Timer Service_Object * timer:_make_Timer() \"-i 60000\n")}));
  expect_row("ends at the start, with status 0", FAULT,
             log_of({"-f", dir_.write("f", "dynamic Timer Service_Object * timer:_make_Timer \"-i 60000\"\n")}));
  expect_row("a directive has no effect", LINE + "syntax error",
             log_of({"-f", dir_.write("g", timer("-i 60000", "Timer-x"))}));
  expect_row("no service at all", "cannot obtain signal handler", log_of({"-s", "99", "-f", good}));

  // ---- Reactor and identity
  expect_row("one thread instead of a pool", "The number of threads (<number>) of thread pool reactor is less than 2",
             log_of({"--reactor", "tp", "-f", good}));
  expect_row("one thread instead of a pool", "Failed to get reactor factory by '<type>'",
             log_of({"--reactor", "pool", "--threads", "2", "-f", good}));
  expect_row("runs as the wrong user", "Failed to get <user> password entry, errno=<errno>, <reason>",
             log_of({"--user", "nobody_at_all", "-f", good}));
  options_.uid = 65534;
  expect_row("runs as the wrong user", "Failed to set uid to <uid>, errno=<errno>, <reason>",
             log_of({"--user", "daemon", "-f", good}));
  options_.uid = 0;
  expect_row("lacks a group", "Failed to set supplementary groups, errno=<errno>, <reason>",
             log_of({"--user", "nobody", "--group", "daemon", "-f", good}));

  // ---- Notifications
  options_.env["LIBSYSTEMD_FILENAME"] = fake_library();
  options_.env["FAKE_SD_WATCHDOG"] = "0";
  expect_row("the unit never becomes ready", "systemd watchdog is not enabled.", log_of({"-f", good}));
  options_.env.erase("FAKE_SD_WATCHDOG");
  options_.env["WATCHDOG_USEC"] = "30000000";
  expect_row("restarted every few seconds", "Notify systemd every <number> ms.", log_of({"-f", good}));
  options_.env["LIBSYSTEMD_FILENAME"] = "/no/library";
  expect_row("the unit never becomes ready", "Unable to load <library>, <reason>", log_of({"-f", good}));
  options_.env["LIBSYSTEMD_FILENAME"] = "0";
  const std::string silent = log_of({"-f", good});
  EXPECT_THAT(silent, testing::Not(testing::HasSubstr("Notify systemd")));
  expect_row("the unit never becomes ready", "", silent);
  options_.env.erase("LIBSYSTEMD_FILENAME");

  // ---- Ends
  const std::string ends = "ends with status 0 all of a sudden";
  const auto wait_for_fault = [](Starter_Process& starter) { (void)starter.wait_for_record("the back trace:"); };
  expect_row(ends, FAULT, log_of({"-S", dynamic_directive("C", "crash", "_make_Crash", "page")}, wait_for_fault));
  expect_row(ends, "Unhandled exception is caught, <text>",
             log_of({"-S", dynamic_directive("T", "thrower", "_make_Thrower", "timer std")}, wait_for_fault));

  // ---- Reload
  const std::string nothing = "a reload changes nothing";
  const std::string gone = dir_.write("gone", timer("-i 60000"));
  expect_row(nothing, "process_directives: No such file or directory",
             log_of({"-f", gone}, reload_after([&] { std::filesystem::remove(gone); })));
  const std::string turned = dir_.write("turned", timer("-i 60000"));
  expect_row(nothing, "Failed to read <file>, nothing is reloaded, errno=<errno>, <reason>",
             log_of({"-f", turned}, reload_after([&] {
                      std::filesystem::remove(turned);
                      std::filesystem::create_directory(turned);
                    })));
  options_.env["NAME"] = turned;
  expect_row("services of one file are missing", "Failed to read <file>, which is left out, errno=<errno>, <reason>",
             log_of({"-f", "$NAME"}));
  const std::string same = log_of({"-s", "1", "-f", good}, reload_after([&] { conf(timer("-i 70000")); }));
  EXPECT_THAT(same, testing::Not(testing::HasSubstr("70000")));
  expect_row(nothing, "", same);

  // ---- Rows of the test below, and of systemd_boot.does_not_start_a_unit_whose_user_does_not_exist
  leave_to_other_tests("does not end", "Signal <number> (<name>) caught in [<thread>].");
  leave_to_other_tests("the unit fails with `217/USER`", "");
  expect_all_rows_provoked();
}

TEST_F(troubleshooting, shows_the_record_of_a_termination_that_a_service_holds_up)
{
  const std::string fifo = dir_ / "fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  Starter_Process starter({"-S", dynamic_directive("S", "staller", "_make_Staller", fifo + " held")}, options_);
  ASSERT_TRUE(starter.wait_for_record("The staller holds the start.")) << starter.log();

  starter.send(SIGTERM);

  EXPECT_TRUE(starter.wait_for_record("Signal 15 (Terminated) caught in [starter].")) << starter.log();
  EXPECT_TRUE(starter.is_running());
}
