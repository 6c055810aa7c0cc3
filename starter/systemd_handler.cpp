#include "starter/systemd_handler.h"

#include "scrt/environ.h"
#include "scrt/log.h"
#include "scrt/natoi.h"

#include <ace/OS_NS_errno.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include <dlfcn.h>
#include <unistd.h>

// The client library's functions.
using sd_booted_t = int (*)(void);
using sd_watchdog_enabled_t = int (*)(int, uint64_t*);
using sd_notify_t = int (*)(int, const char*);

enum {
  NOTIFY_RETRIES = 3,       // keep-alives a watchdog period
  MIN_NOTIFY_USEC = 3000000 // the shortest interval that is computed
};

Systemd_Handler::Systemd_Handler()
    : ACE_Event_Handler(nullptr, ACE_Event_Handler::LO_PRIORITY), handle_(nullptr), notify_timer_id_(-1)
{
}

Systemd_Handler::~Systemd_Handler()
{
  (void)close(); // always 0
}

int Systemd_Handler::open(ACE_Reactor* r)
{
  if (!r) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, r is NULL:\n%?\n");
    return -1;
  }

  if (open_i(r) != 0) {
    (void)close(); // always 0
    return -1;
  }

  return 0;
}

// Tells why the last library could not be loaded. Copied, because the next dl call, even the logger's, invalidates the
// text.
static std::string get_load_error()
{
  const char* const text = dlerror();

  return text ? text : "";
}

// Returns the client library, or null, and sets `fname` to the name that it was found by.
static void* load_library(std::string& fname)
{
  fname = get_env_r("LIBSYSTEMD_FILENAME");
  if (fname == "0")
    return nullptr;

  if (!fname.empty()) {
    void* const handle = dlopen(fname.c_str(), RTLD_LAZY);
    if (!handle)
      LOG_FAILED(LM_WARNING, "Unable to load %s, %s\n", fname.c_str(), get_load_error().c_str());
    return handle;
  }

  fname = "libsystemd.so.0";
  if (void* const handle = dlopen(fname.c_str(), RTLD_LAZY))
    return handle;
  LOG_RECORD(LM_WARNING, "Unable to load libsystemd.so.0, %s\n",
             get_load_error().c_str()); // not a failure yet: the old name is tried next

  fname = "libsystemd-daemon.so.0";
  void* const handle = dlopen(fname.c_str(), RTLD_LAZY);
  if (!handle)
    LOG_FAILED(LM_WARNING, "Unable to load libsystemd-daemon.so.0, %s\n", get_load_error().c_str());
  return handle;
}

// Asks the client library for the period of the watchdog.
static bool ask_library(sd_watchdog_enabled_t sd_watchdog_enabled, uint64_t& usec)
{
  if (sd_watchdog_enabled(0, &usec) > 0) // 0 keeps the variables in the environment, for children
    return true;

  LOG_FAILED(LM_WARNING, "systemd watchdog is not enabled.\n");
  return false;
}

// Reads what a newer client library would have read.
static bool ask_environment(uint64_t& usec)
{
  std::string tmp_env = get_env_r("WATCHDOG_USEC");
  if (tmp_env.empty()) {
    LOG_FAILED(LM_WARNING, "systemd watchdog is not enabled, WATCHDOG_USEC is unset.\n");
    return false;
  }

  usec = natoi<unsigned long long, char const*>(tmp_env.c_str(), nullptr, nullptr);
  if (usec == 0) {
    LOG_FAILED(LM_WARNING, "systemd watchdog is not enabled, WATCHDOG_USEC=%s.\n", tmp_env.c_str());
    return false;
  }

  tmp_env = get_env_r("WATCHDOG_PID");
  if (!tmp_env.empty() && natoi<int, char const*>(tmp_env.c_str(), nullptr, nullptr) != getpid()) {
    LOG_FAILED(LM_WARNING, "systemd watchdog is not enabled, WATCHDOG_PID=%s.\n", tmp_env.c_str());
    return false;
  }

  return true;
}

// The longest interval, in seconds. The time value keeps it to the second, its milliseconds fit a long, and it can be
// added to the present time: none of these overflows.
static constexpr unsigned long long MAX_NOTIFY_SEC = 1ULL << 53;

// Returns the time between keep-alives for a watchdog period of `usec`.
static ACE_Time_Value get_interval(uint64_t usec)
{
  ACE_Time_Value tmo(ACE_Time_Value::zero);

  const std::string tmp_env = get_env_r("SD_NOTIFY_INTERVAL");
  if (!tmp_env.empty()) {
    const unsigned long long sec = natoi<unsigned long long, char const*>(tmp_env.c_str(), nullptr, nullptr);
    tmo.set(static_cast<double>(std::min(sec, MAX_NOTIFY_SEC)));
  }

  // Kept as it is: the floor also holds for a watchdog period below 3 seconds, which no keep-alive then meets. An
  // operator who sets so short a period sets the interval too.
  if (tmo == ACE_Time_Value::zero) {
    usec /= NOTIFY_RETRIES;
    if (usec < MIN_NOTIFY_USEC)
      usec = MIN_NOTIFY_USEC;
    tmo.set(0, static_cast<suseconds_t>(usec));
  }

  return tmo;
}

int Systemd_Handler::open_i(ACE_Reactor* r)
{
  std::string fname;
  if (!handle_)
    handle_ = load_library(fname);
  if (!handle_)
    return -1;

  const sd_booted_t sd_booted = reinterpret_cast<sd_booted_t>(dlsym(handle_, "sd_booted"));
  if (!sd_booted) {
    LOG_FAILED(LM_ERROR, "Not found symbol sd_booted in %s!\n", fname.c_str());
    return -1;
  }
  const sd_notify_t sd_notify = reinterpret_cast<sd_notify_t>(dlsym(handle_, "sd_notify"));
  if (!sd_notify) {
    LOG_FAILED(LM_ERROR, "Not found symbol sd_notify in %s!\n", fname.c_str());
    return -1;
  }
  const sd_watchdog_enabled_t sd_watchdog_enabled =
      reinterpret_cast<sd_watchdog_enabled_t>(dlsym(handle_, "sd_watchdog_enabled"));
  if (!sd_watchdog_enabled)
    LOG_RECORD(LM_WARNING, "Not found symbol sd_watchdog_enabled in %s!\n", fname.c_str());

  if (sd_booted() <= 0)
    return -1;

  uint64_t usec = 0;
  if (!(sd_watchdog_enabled ? ask_library(sd_watchdog_enabled, usec) : ask_environment(usec)))
    return -1;

  reactor(r);
  const ACE_Time_Value tmo = get_interval(usec);
  notify_timer_id_ = reactor()->schedule_timer(this, reinterpret_cast<const void*>(sd_notify), tmo, tmo);
  if (notify_timer_id_ == -1) {
    LOG_FAILED(LM_ERROR, "Failed to schedule systemd notify timer, errno=%d, %m\n", ACE_OS::last_error());
    return -1;
  }

  // Written to standard error for the journal, which reads the priority from the text; the log may go anywhere.
  std::fprintf(stderr, "<6>Notify systemd every %llu ms.\n", static_cast<unsigned long long>(tmo.get_msec()));
  LOG_RECORD(LM_DEBUG, "Notify systemd every %Q ms.\n", tmo.get_msec());

  // Readiness goes together with the watchdog: without a watchdog it is not reported.
  (void)sd_notify(0, "READY=1\n"); // a lost message is no reason to stop
  (void)sd_notify(0, "WATCHDOG=1\n");
  return 0;
}

int Systemd_Handler::handle_timeout(const ACE_Time_Value&, const void* act)
{
  const sd_notify_t sd_notify = reinterpret_cast<sd_notify_t>(const_cast<void*>(act));
  if (handle_ && sd_notify)
    (void)sd_notify(0, "WATCHDOG=1\n"); // a lost message is no reason to stop

  return 0;
}

int Systemd_Handler::close()
{
  ACE_Reactor* const r = reactor();
  if (r) {
    reactor(nullptr);
    r->cancel_timer(notify_timer_id_, nullptr, 1); // 1 leaves out handle_close(), which has nothing to do
  }

  if (handle_) {
    dlclose(handle_);
    handle_ = nullptr;
  }

  return 0;
}
