#include "starter/systemd_handler.h"

#include "tests/support/fake_systemd.h"
#include "tests/support/log_capture.h"
#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

#include <ace/Select_Reactor.h>
#include <ace/Timer_Heap.h>
#include <ace/Timer_Queue.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

// ---- What the notifier finds in place of the C library

// `redirected` maps library names to other files, which may be missing. `asked_for` lists every name that was opened,
// with its mode.
static std::map<std::string, std::string> redirected;
static std::vector<std::pair<std::string, int>> asked_for;

extern "C" void* dlopen(const char* name, int mode) noexcept
{
  static auto* const real = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
  if (!name || mode & RTLD_NOLOAD)
    return real(name, mode);

  asked_for.emplace_back(name, mode);
  const auto found = redirected.find(name);
  return real(found == redirected.end() ? name : found->second.c_str(), mode);
}

// While `is_wordless` is set, the loader gives no reason for an error. The real dlerror is looked up beforehand,
// because the look-up itself would clear the reason.
using dlerror_t = char* (*)();
static bool is_wordless;

static dlerror_t find_dlerror()
{
  return reinterpret_cast<dlerror_t>(dlsym(RTLD_NEXT, "dlerror"));
}

static dlerror_t real_dlerror = find_dlerror();

extern "C" char* dlerror() noexcept
{
  if (is_wordless)
    return nullptr;
  if (!real_dlerror)
    real_dlerror = find_dlerror(); // a sanitizer calls this before the variables are initialised
  return real_dlerror();
}

// ---- The notifier and what surrounds it

class Open_Handler : public Systemd_Handler
{
public:
  using Systemd_Handler::handle_;
  using Systemd_Handler::handle_timeout;
  using Systemd_Handler::notify_timer_id_;
};

// A timer queue whose schedule() fails with `error` unless this is 0, and which notes the timers that it cancels.
class Watched_Timers : public ACE_Timer_Heap
{
public:
  explicit Watched_Timers(int error = 0) : error_(error) {}

  long schedule(ACE_Event_Handler* const& handler, const void* act, const ACE_Time_Value& when,
                const ACE_Time_Value& interval) override
  {
    if (error_ != 0) {
      errno = error_;
      return -1;
    }
    return ACE_Timer_Heap::schedule(handler, act, when, interval);
  }

  int cancel(long timer_id, const void** act = nullptr, int dont_call = 1) override
  {
    cancelled_.emplace_back(timer_id, dont_call);
    return ACE_Timer_Heap::cancel(timer_id, act, dont_call);
  }

  const std::vector<std::pair<long, int>>& cancelled() const { return cancelled_; }

private:
  const int error_;
  std::vector<std::pair<long, int>> cancelled_;
};

static bool is_loaded(const std::string& library)
{
  void* const handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (handle)
    dlclose(handle);
  return handle;
}

static std::vector<Logged> logged_by_notifier(const Log_Capture& capture)
{
  std::vector<Logged> found;
  for (const Record& record : capture.records()) {
    EXPECT_EQ("starter/systemd_handler.cpp", record.file);
    found.push_back(without_file(record));
  }
  return found;
}

class systemd_handler : public testing::Test
{
protected:
  systemd_handler()
      : timers_(new Watched_Timers), reactor_(new ACE_Select_Reactor(nullptr, timers_.get()), true),
        calls_(dir_ / "calls")
  {
    for (const char* const name : {"WATCHDOG_USEC", "WATCHDOG_PID", "SD_NOTIFY_INTERVAL", "FAKE_SD_BOOTED",
                                   "FAKE_SD_WATCHDOG", "FAKE_SD_NOTIFY", "NOTIFY_SOCKET"})
      unsetenv(name);
    setenv("FAKE_SD_CALLS", calls_.c_str(), 1);
    setenv("WATCHDOG_USEC", "30000000", 1);
    use(fake_library());
    redirected.clear();
    asked_for.clear();
    is_wordless = false;
  }

  ~systemd_handler() override { handler_.close(); }

  void use(const std::string& library) { setenv("LIBSYSTEMD_FILENAME", library.c_str(), 1); }

  // Opens the notifier, and keeps its records and its output to standard error.
  int open(ACE_Reactor* r)
  {
    const Log_Capture capture;
    testing::internal::CaptureStderr();
    const int result = handler_.open(r);
    standard_error_ = testing::internal::GetCapturedStderr();
    records_ = logged_by_notifier(capture);
    return result;
  }
  int open() { return open(&reactor_); }

  // The calls of the library since the last time.
  std::vector<std::string> calls()
  {
    const std::vector<std::string> calls = fake_calls(calls_);
    unlink(calls_.c_str());
    return calls;
  }

  unsigned scheduled()
  {
    unsigned count = 0;
    ACE_Timer_Queue_Iterator& i = timers_->iter();
    for (i.first(); !i.isdone(); i.next())
      ++count;
    return count;
  }

  // The interval of the one timer in milliseconds; "" when there is not exactly one.
  std::string interval_ms()
  {
    if (scheduled() != 1)
      return "";
    ACE_Timer_Queue_Iterator& i = timers_->iter();
    i.first();
    return std::to_string(i.item()->get_interval().get_msec());
  }

  // An attempt to open must have left nothing behind.
  void expect_closed()
  {
    EXPECT_EQ(nullptr, handler_.handle_);
    EXPECT_EQ(nullptr, handler_.reactor());
    EXPECT_EQ(0u, scheduled());
    EXPECT_EQ("", standard_error_);
    for (const char* const variant : {"", "_without_booted", "_without_notify", "_without_watchdog"})
      EXPECT_FALSE(is_loaded(fake_library(variant)));
    for (const std::string& call : calls())
      EXPECT_EQ(std::string::npos, call.find("sd_notify")) << call;
  }

  Temp_Dir dir_;
  std::unique_ptr<Watched_Timers> timers_;
  ACE_Reactor reactor_;
  const std::string calls_;
  Open_Handler handler_;
  std::vector<Logged> records_;
  std::string standard_error_;
};

static const std::vector<std::string> ACTIVE_CALLS{"sd_booted", "sd_watchdog_enabled 0", "sd_notify 0 READY=1\n",
                                                   "sd_notify 0 WATCHDOG=1\n"};

static std::vector<Logged> announced(const std::string& ms)
{
  return {debug("Notify systemd every " + ms + " ms.\n")};
}

// ---- A new notifier

TEST_F(systemd_handler, starts_with_nothing)
{
  EXPECT_EQ(nullptr, handler_.handle_);
  EXPECT_EQ(-1, handler_.notify_timer_id_);
  EXPECT_EQ(nullptr, handler_.reactor());
  EXPECT_EQ(0, handler_.priority());
  EXPECT_TRUE(asked_for.empty());
}

TEST_F(systemd_handler, reports_readiness_and_a_first_keep_alive_when_it_is_opened)
{
  ASSERT_EQ(0, open());

  EXPECT_EQ(ACTIVE_CALLS, calls());
  EXPECT_EQ(announced("10000"), records_);
  EXPECT_EQ("<6>Notify systemd every 10000 ms.\n", standard_error_);
  EXPECT_EQ("10000", interval_ms());
  EXPECT_EQ(&reactor_, handler_.reactor());
  EXPECT_NE(-1, handler_.notify_timer_id_);
  EXPECT_TRUE(is_loaded(fake_library()));
  EXPECT_EQ((std::vector<std::pair<std::string, int>>{{fake_library(), RTLD_LAZY}}), asked_for);
}

TEST_F(systemd_handler, waits_one_interval_before_the_next_keep_alive)
{
  const ACE_Time_Value before = timers_->gettimeofday();
  ASSERT_EQ(0, open());
  const ACE_Time_Value after = timers_->gettimeofday();

  const ACE_Time_Value interval(10);
  EXPECT_GE(timers_->earliest_time(), before + interval);
  EXPECT_LE(timers_->earliest_time(), after + interval);
}

TEST_F(systemd_handler, hands_the_notification_function_to_its_timer)
{
  ASSERT_EQ(0, open());

  ACE_Timer_Queue_Iterator& i = timers_->iter();
  i.first();
  EXPECT_EQ(&handler_, i.item()->get_type());
  EXPECT_EQ(dlsym(handler_.handle_, "sd_notify"), i.item()->get_act());
}

TEST_F(systemd_handler, ignores_the_results_of_notifications)
{
  setenv("FAKE_SD_NOTIFY", "-5", 1);

  EXPECT_EQ(0, open());
  EXPECT_EQ(announced("10000"), records_);
  EXPECT_EQ(0, handler_.handle_timeout(ACE_Time_Value::zero, dlsym(handler_.handle_, "sd_notify")));
}

// ---- The library

TEST_F(systemd_handler, logs_an_emergency_and_loads_nothing_for_a_null_reactor)
{
  ASSERT_EQ(-1, open(nullptr));

  ASSERT_EQ(1u, records_.size());
  EXPECT_THAT(records_[0], BeginsLike(emergency_failed("Unexpected error in starter/systemd_handler.cpp:")));
  const std::string& text = records_[0].text;
  const std::string end = ", r is NULL:\n";
  const std::size_t at = text.find(end);
  ASSERT_NE(std::string::npos, at) << text;
  EXPECT_GT(text.size(), at + end.size() + 2) << "there is no back trace in " << text;
  EXPECT_TRUE(asked_for.empty());
  expect_closed();
}

TEST_F(systemd_handler, is_switched_off_by_a_single_zero_without_a_word)
{
  use("0");

  EXPECT_EQ(-1, open());
  EXPECT_TRUE(records_.empty());
  EXPECT_TRUE(asked_for.empty());
  expect_closed();
}

TEST_F(systemd_handler, takes_two_zeros_for_a_file_name)
{
  use("00");

  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{
                warning_failed("Unable to load 00, 00: cannot open shared object file: No such file or directory\n")}),
            records_);
  expect_closed();
}

TEST_F(systemd_handler, logs_a_missing_library_and_tries_no_other_once_a_name_is_set)
{
  use("/nowhere/libsystemd.so");

  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{
                warning_failed("Unable to load /nowhere/libsystemd.so, /nowhere/libsystemd.so: cannot open shared "
                               "object file: No such file or directory\n")}),
            records_);
  EXPECT_EQ((std::vector<std::pair<std::string, int>>{{"/nowhere/libsystemd.so", RTLD_LAZY}}), asked_for);
  expect_closed();
}

TEST_F(systemd_handler, looks_for_the_current_name_when_none_is_set_or_an_empty_one)
{
  for (const bool is_set : {false, true}) {
    SCOPED_TRACE(is_set ? "empty" : "unset");
    unsetenv("LIBSYSTEMD_FILENAME");
    if (is_set)
      use("");
    redirected = {{"libsystemd.so.0", fake_library()}};
    asked_for.clear();

    EXPECT_EQ(0, open());
    EXPECT_EQ(announced("10000"), records_);
    EXPECT_EQ((std::vector<std::pair<std::string, int>>{{"libsystemd.so.0", RTLD_LAZY}}), asked_for);
    EXPECT_EQ(ACTIVE_CALLS, calls());
    handler_.close();
  }
}

TEST_F(systemd_handler, falls_back_to_the_old_name_with_a_warning_that_is_no_failure)
{
  unsetenv("LIBSYSTEMD_FILENAME");
  redirected = {{"libsystemd.so.0", "/nowhere/new"}, {"libsystemd-daemon.so.0", fake_library()}};

  EXPECT_EQ(0, open());
  EXPECT_EQ((std::vector<Logged>{
                warning("Unable to load libsystemd.so.0, /nowhere/new: cannot open shared object file: No such "
                        "file or directory\n"),
                debug("Notify systemd every 10000 ms.\n")}),
            records_);
  EXPECT_EQ(
      (std::vector<std::pair<std::string, int>>{{"libsystemd.so.0", RTLD_LAZY}, {"libsystemd-daemon.so.0", RTLD_LAZY}}),
      asked_for);
  EXPECT_EQ(ACTIVE_CALLS, calls());
}

TEST_F(systemd_handler, fails_when_the_old_name_is_not_found_either)
{
  unsetenv("LIBSYSTEMD_FILENAME");
  redirected = {{"libsystemd.so.0", "/nowhere/new"}, {"libsystemd-daemon.so.0", "/nowhere/old"}};

  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{
                warning("Unable to load libsystemd.so.0, /nowhere/new: cannot open shared object file: No such "
                        "file or directory\n"),
                warning_failed("Unable to load libsystemd-daemon.so.0, /nowhere/old: cannot open shared object file: "
                               "No such file or directory\n")}),
            records_);
  expect_closed();
}

TEST_F(systemd_handler, fails_with_a_record_when_the_loader_gives_no_reason)
{
  use("/nowhere/lib");
  is_wordless = true;

  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{warning_failed("Unable to load /nowhere/lib, \n")}), records_);
  expect_closed();
}

TEST_F(systemd_handler, names_the_library_that_lacks_a_function_it_needs)
{
  for (const std::string missing : {"booted", "notify"}) {
    SCOPED_TRACE(missing);
    const std::string library = fake_library("_without_" + missing);
    use(library);

    EXPECT_EQ(-1, open());
    EXPECT_EQ((std::vector<Logged>{error_failed("Not found symbol sd_" + missing + " in " + library + "!\n")}),
              records_);
    EXPECT_TRUE(calls().empty());
    expect_closed();
  }
}

TEST_F(systemd_handler, names_the_built_in_library_that_lacks_a_function)
{
  unsetenv("LIBSYSTEMD_FILENAME");
  redirected = {{"libsystemd.so.0", fake_library("_without_booted")}};
  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{error_failed("Not found symbol sd_booted in libsystemd.so.0!\n")}), records_);

  redirected = {{"libsystemd.so.0", "/nowhere/new"}, {"libsystemd-daemon.so.0", fake_library("_without_notify")}};
  EXPECT_EQ(-1, open());
  ASSERT_EQ(2u, records_.size());
  EXPECT_EQ(error_failed("Not found symbol sd_notify in libsystemd-daemon.so.0!\n"), records_[1]);
  expect_closed();
}

// ---- The init system and its watchdog

TEST_F(systemd_handler, is_silent_outside_the_init_system_and_unloads_the_library)
{
  for (const char* const booted : {"0", "-1", "-2147483648"}) {
    SCOPED_TRACE(booted);
    setenv("FAKE_SD_BOOTED", booted, 1);

    EXPECT_EQ(-1, open());
    EXPECT_TRUE(records_.empty());
    EXPECT_EQ((std::vector<std::string>{"sd_booted"}), calls());
    expect_closed();
  }
}

TEST_F(systemd_handler, warns_when_there_is_no_watchdog_for_this_service_and_reports_no_readiness)
{
  for (const char* const enabled : {"0", "-22"}) {
    SCOPED_TRACE(enabled);
    setenv("FAKE_SD_WATCHDOG", enabled, 1);

    EXPECT_EQ(-1, open());
    EXPECT_EQ((std::vector<Logged>{warning_failed("systemd watchdog is not enabled.\n")}), records_);
    EXPECT_EQ((std::vector<std::string>{"sd_booted", "sd_watchdog_enabled 0"}), calls());
    expect_closed();
  }
}

TEST_F(systemd_handler, leaves_the_watchdog_variables_alone)
{
  setenv("WATCHDOG_PID", "1", 1); // the library looks at this variable

  ASSERT_EQ(0, open());
  EXPECT_STREQ("30000000", std::getenv("WATCHDOG_USEC"));
  EXPECT_STREQ("1", std::getenv("WATCHDOG_PID"));
}

// A client library too old to tell of the watchdog.
class old_library : public systemd_handler
{
protected:
  old_library() { use(library_); }

  const std::string library_ = fake_library("_without_watchdog");
  const Logged missing_ = warning("Not found symbol sd_watchdog_enabled in " + library_ + "!\n");
};

TEST_F(old_library, is_good_enough_with_a_warning_that_is_no_failure)
{
  ASSERT_EQ(0, open());

  EXPECT_EQ((std::vector<Logged>{missing_, debug("Notify systemd every 10000 ms.\n")}), records_);
  EXPECT_EQ((std::vector<std::string>{"sd_booted", "sd_notify 0 READY=1\n", "sd_notify 0 WATCHDOG=1\n"}), calls());
}

TEST_F(old_library, is_not_asked_for_the_watchdog_outside_the_init_system)
{
  setenv("FAKE_SD_BOOTED", "0", 1);
  unsetenv("WATCHDOG_USEC");

  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{missing_}), records_);
  expect_closed();
}

TEST_F(old_library, is_useless_without_a_period_in_the_environment)
{
  for (const bool is_set : {false, true}) {
    SCOPED_TRACE(is_set ? "empty" : "unset");
    unsetenv("WATCHDOG_USEC");
    if (is_set)
      setenv("WATCHDOG_USEC", "", 1);

    EXPECT_EQ(-1, open());
    EXPECT_EQ(
        (std::vector<Logged>{missing_, warning_failed("systemd watchdog is not enabled, WATCHDOG_USEC is unset.\n")}),
        records_);
    expect_closed();
  }
}

TEST_F(old_library, is_useless_with_a_period_of_zero_or_no_number)
{
  for (const std::string period : {"0", "000", "soon", "-30000000", " 30000000"}) {
    SCOPED_TRACE(period);
    setenv("WATCHDOG_USEC", period.c_str(), 1);

    EXPECT_EQ(-1, open());
    EXPECT_EQ((std::vector<Logged>{missing_,
                                   warning_failed("systemd watchdog is not enabled, WATCHDOG_USEC=" + period + ".\n")}),
              records_);
    expect_closed();
  }
}

TEST_F(old_library, serves_with_the_leading_digits_of_a_period)
{
  setenv("WATCHDOG_USEC", "+60000000us", 1);

  ASSERT_EQ(0, open());
  EXPECT_EQ("20000", interval_ms());
}

TEST_F(old_library, is_useless_when_the_watchdog_is_for_another_process)
{
  for (const std::string& pid : {std::to_string(getppid()), std::string("0"), std::string("self"),
                                 "-" + std::to_string(getpid()), "1" + std::to_string(getpid())}) {
    SCOPED_TRACE(pid);
    setenv("WATCHDOG_PID", pid.c_str(), 1);

    EXPECT_EQ(-1, open());
    EXPECT_EQ(
        (std::vector<Logged>{missing_, warning_failed("systemd watchdog is not enabled, WATCHDOG_PID=" + pid + ".\n")}),
        records_);
    expect_closed();
  }
}

TEST_F(old_library, serves_when_the_watchdog_is_for_this_process_or_nobody_in_particular)
{
  for (const std::string& pid : {std::to_string(getpid()), std::string()}) {
    SCOPED_TRACE(pid);
    setenv("WATCHDOG_PID", pid.c_str(), 1);

    EXPECT_EQ(0, open());
    EXPECT_EQ("10000", interval_ms());
    handler_.close();
  }
}

// ---- The interval

TEST_F(systemd_handler, sends_keep_alives_every_third_of_the_period_but_not_more_often_than_every_3_seconds)
{
  const std::pair<const char*, const char*> cases[] = {
      {"30000000", "10000"}, {"9000000", "3000"},       {"9003000", "3001"},        {"9002999", "3000"},
      {"6000000", "3000"},   {"3000000", "3000"},       {"2000000", "3000"},        {"1", "3000"},
      {"20000000", "6666"},  {"7200000000", "2400000"}, {"86400000000", "28800000"}};

  for (const char* const variant : {"", "_without_watchdog"})
    for (const auto& [period, ms] : cases) {
      SCOPED_TRACE(std::string(period) + variant);
      use(fake_library(variant));
      setenv("WATCHDOG_USEC", period, 1);

      EXPECT_EQ(0, open());
      EXPECT_EQ(ms, interval_ms());
      EXPECT_EQ(std::string("<6>Notify systemd every ") + ms + " ms.\n", standard_error_);
      ASSERT_FALSE(records_.empty());
      EXPECT_EQ(announced(ms)[0], records_.back());
      handler_.close();
    }
}

TEST_F(systemd_handler, cuts_a_third_of_the_period_to_whole_microseconds)
{
  setenv("WATCHDOG_USEC", "20000000", 1);

  ASSERT_EQ(0, open());
  ACE_Timer_Queue_Iterator& i = timers_->iter();
  i.first();
  EXPECT_EQ(ACE_Time_Value(6, 666666), i.item()->get_interval());
}

TEST_F(systemd_handler, takes_whole_seconds_from_the_environment_whatever_the_period)
{
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"5", "30000000", "5000"},   {"1", "30000000", "1000"},   {"5", "2000000", "5000"},
      {"60", "30000000", "60000"}, {"5ms", "30000000", "5000"}, {"2.9", "30000000", "2000"}};

  for (const auto& [seconds, period, ms] : cases) {
    SCOPED_TRACE(seconds);
    setenv("SD_NOTIFY_INTERVAL", seconds, 1);
    setenv("WATCHDOG_USEC", period, 1);

    EXPECT_EQ(0, open());
    EXPECT_EQ(ms, interval_ms());
    EXPECT_EQ(std::string("<6>Notify systemd every ") + ms + " ms.\n", standard_error_);
    EXPECT_EQ(announced(ms), records_);
    handler_.close();
  }
}

// An interval of 285 million years is as good as one that a time value cannot hold.
TEST_F(systemd_handler, takes_no_more_seconds_than_a_time_value_can_be_reckoned_with)
{
  for (const char* const seconds : {"9007199254740992", "9007199254740993", "9223372036854775", "9223372036854775807",
                                    "9223372036854775808", "18446744073709551615", "99999999999999999999999"}) {
    SCOPED_TRACE(seconds);
    setenv("SD_NOTIFY_INTERVAL", seconds, 1);

    EXPECT_EQ(0, open());
    EXPECT_EQ("9007199254740992000", interval_ms());
    EXPECT_EQ(announced("9007199254740992000"), records_);
    EXPECT_LT(ACE_Time_Value(1LL << 53), timers_->earliest_time()); // now and the interval, not wrapped
    handler_.close();
  }
}

TEST_F(systemd_handler, computes_the_interval_when_the_environment_has_zero_or_no_number)
{
  for (const char* const seconds : {"", "0", "000", "often", "-5", " 5"}) {
    SCOPED_TRACE(seconds);
    setenv("SD_NOTIFY_INTERVAL", seconds, 1);

    EXPECT_EQ(0, open());
    EXPECT_EQ("10000", interval_ms());
    handler_.close();
  }
}

// ---- The timer

TEST_F(systemd_handler, logs_a_timer_that_cannot_be_scheduled_and_sends_nothing)
{
  Watched_Timers no_room(ENOMEM);
  ACE_Reactor r(new ACE_Select_Reactor(nullptr, &no_room), true);

  EXPECT_EQ(-1, open(&r));
  EXPECT_EQ((std::vector<Logged>{
                error_failed("Failed to schedule systemd notify timer, errno=12, Cannot allocate memory\n")}),
            records_);
  EXPECT_EQ((std::vector<std::string>{"sd_booted", "sd_watchdog_enabled 0"}), calls());
  expect_closed();
}

TEST_F(systemd_handler, sends_a_keep_alive_and_stays_when_its_timer_expires)
{
  ASSERT_EQ(0, open());
  (void)calls();

  EXPECT_EQ(0, handler_.handle_timeout(ACE_Time_Value::zero, dlsym(handler_.handle_, "sd_notify")));
  EXPECT_EQ((std::vector<std::string>{"sd_notify 0 WATCHDOG=1\n"}), calls());
}

TEST_F(systemd_handler, sends_nothing_without_a_function_or_a_library_and_stays)
{
  EXPECT_EQ(0, handler_.handle_timeout(ACE_Time_Value::zero, nullptr));

  ASSERT_EQ(0, open());
  void* const sd_notify = dlsym(handler_.handle_, "sd_notify");
  (void)calls();
  EXPECT_EQ(0, handler_.handle_timeout(ACE_Time_Value::zero, nullptr));

  handler_.close();
  EXPECT_EQ(0, handler_.handle_timeout(ACE_Time_Value::zero, sd_notify));
  EXPECT_TRUE(calls().empty());
}

TEST_F(systemd_handler, sends_a_keep_alive_at_every_expiry_that_the_reactor_dispatches)
{
  setenv("SD_NOTIFY_INTERVAL", "1", 1);
  ASSERT_EQ(0, open());
  (void)calls();

  // The queue gets the time from the test, which therefore need not wait.
  ACE_Time_Value now = timers_->earliest_time();
  for (int expiry = 1; expiry <= 3; ++expiry) {
    SCOPED_TRACE(expiry);
    timers_->expire(now - ACE_Time_Value(0, 1));
    EXPECT_TRUE(calls().empty());

    timers_->expire(now);
    EXPECT_EQ((std::vector<std::string>{"sd_notify 0 WATCHDOG=1\n"}), calls());
    now += ACE_Time_Value(1);
  }
  EXPECT_EQ(1u, scheduled());
}

// ---- The end

TEST_F(systemd_handler, cancels_its_timer_and_unloads_the_library_when_it_is_closed)
{
  ASSERT_EQ(0, open());
  const long timer_id = handler_.notify_timer_id_;
  (void)calls();
  const Log_Capture capture;

  EXPECT_EQ(0, handler_.close());

  EXPECT_EQ((std::vector<std::pair<long, int>>{{timer_id, 1}}), timers_->cancelled());
  EXPECT_EQ(timer_id, handler_.notify_timer_id_);
  EXPECT_TRUE(capture.records().empty());
  standard_error_.clear();
  expect_closed();
}

TEST_F(systemd_handler, does_nothing_when_it_is_closed_again)
{
  ASSERT_EQ(0, open());
  ASSERT_EQ(0, handler_.close());
  (void)calls();

  EXPECT_EQ(0, handler_.close());

  EXPECT_EQ(1u, timers_->cancelled().size());
  standard_error_.clear();
  expect_closed();
}

TEST_F(systemd_handler, may_be_closed_without_having_been_opened)
{
  EXPECT_EQ(0, handler_.close());
  EXPECT_TRUE(timers_->cancelled().empty());
}

TEST_F(systemd_handler, can_be_opened_again_after_it_was_closed)
{
  ASSERT_EQ(0, open());
  handler_.close();
  (void)calls();
  setenv("SD_NOTIFY_INTERVAL", "7", 1);

  ASSERT_EQ(0, open());

  EXPECT_EQ(ACTIVE_CALLS, calls());
  EXPECT_EQ("7000", interval_ms());
  EXPECT_EQ(2u, asked_for.size());
}

TEST_F(systemd_handler, can_be_opened_after_it_failed_to)
{
  setenv("FAKE_SD_WATCHDOG", "0", 1);
  ASSERT_EQ(-1, open());
  unsetenv("FAKE_SD_WATCHDOG");
  (void)calls();

  EXPECT_EQ(0, open());
  EXPECT_EQ(ACTIVE_CALLS, calls());
}

TEST_F(systemd_handler, does_not_load_the_library_again_while_it_has_it)
{
  ASSERT_EQ(0, open());
  setenv("FAKE_SD_WATCHDOG", "0", 1);
  use("/nowhere/libsystemd.so");

  EXPECT_EQ(-1, open());
  EXPECT_EQ((std::vector<Logged>{warning_failed("systemd watchdog is not enabled.\n")}), records_);
  EXPECT_EQ(1u, asked_for.size());
}

TEST_F(systemd_handler, closes_when_it_is_destroyed)
{
  {
    Open_Handler handler;
    ASSERT_EQ(0, handler.open(&reactor_));
    ASSERT_EQ(1u, scheduled());
  }

  EXPECT_EQ(0u, scheduled());
  EXPECT_FALSE(is_loaded(fake_library()));
}

// ---- The one of the process

// Notes what new_event_handler does with it.
class Probe : public ACE_Event_Handler
{
public:
  Probe() { created = this; }
  ~Probe() override { ++deleted; }

  // This is the only form of new that new_event_handler may use.
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept
  {
    return out_of_memory ? nullptr : std::malloc(size);
  }
  static void operator delete(void* p) { std::free(p); }

  int open(ACE_Reactor* r)
  {
    opened_on = r;
    policy = reference_counting_policy().value();
    return -1;
  }

  static bool out_of_memory;
  static Probe* created;
  static int deleted;
  static ACE_Reactor* opened_on;
  static Reference_Counting_Policy::Value policy;
};

bool Probe::out_of_memory;
Probe* Probe::created;
int Probe::deleted;
ACE_Reactor* Probe::opened_on;
ACE_Event_Handler::Reference_Counting_Policy::Value Probe::policy =
    ACE_Event_Handler::Reference_Counting_Policy::ENABLED;

TEST(new_event_handler, opens_a_handler_on_the_process_wide_reactor_and_never_deletes_it)
{
  new_event_handler<Probe>();

  ASSERT_NE(nullptr, Probe::created);
  EXPECT_EQ(ACE_Reactor::instance(), Probe::opened_on);
  EXPECT_EQ(ACE_Event_Handler::Reference_Counting_Policy::DISABLED, Probe::policy);
  EXPECT_EQ(0, Probe::deleted) << "not even after a failure";
}

TEST(new_event_handler, sets_errno_and_opens_nothing_without_memory)
{
  Probe::created = nullptr;
  Probe::opened_on = nullptr;
  const Log_Capture capture;

  errno = 0;
  Probe::out_of_memory = true;
  new_event_handler<Probe>();
  const int error = errno;
  Probe::out_of_memory = false;

  EXPECT_EQ(ENOMEM, error);
  EXPECT_EQ(nullptr, Probe::created);
  EXPECT_EQ(nullptr, Probe::opened_on);
  EXPECT_TRUE(capture.records().empty());
}

// This suite is the last one, because the library stays loaded.
class process_notifier : public systemd_handler
{
};

TEST_F(process_notifier, serves_the_process_to_its_end)
{
  const Log_Capture capture;
  testing::internal::CaptureStderr();
  new_event_handler<Systemd_Handler>();
  standard_error_ = testing::internal::GetCapturedStderr();

  EXPECT_EQ("<6>Notify systemd every 10000 ms.\n", standard_error_);
  EXPECT_EQ(announced("10000"), logged_by_notifier(capture));
  EXPECT_EQ(ACTIVE_CALLS, calls());
  EXPECT_TRUE(is_loaded(fake_library()));
  EXPECT_FALSE(ACE_Reactor::instance()->timer_queue()->is_empty());
}
