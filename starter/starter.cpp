#include "starter/starter.h"

#include <array> // for std::max and std::swap, instead of <algorithm>, which has the header told of below in it

// Services bind to these at load time: they are part of what the program offers. They stand above every other header
// because <functional> instantiates std::max for unsigned long, and after that it is too late to specialise it.
namespace std
{
// Of equal values the second one, other than the library's own rule. Kept: only the identity of the result differs.
template <>
[[gnu::visibility("default")]] const unsigned long& max<unsigned long>(const unsigned long& l, const unsigned long& r)
{
  return r < l ? l : r;
}

template <>
[[gnu::visibility("default")]] const long& max<long>(const long& l, const long& r)
{
  return r < l ? l : r;
}

template <>
[[gnu::visibility("default")]] void swap<unsigned long>(unsigned long& l, unsigned long& r) noexcept
{
  const unsigned long t = l;
  l = r;
  r = t;
}
} // namespace std

#include "scrt/environ.h"
#include "scrt/log.h"
#include "scrt/make_reactor.h"
#include "scrt/natoi.h"
#include "scrt/sysconf_helper.h"
#include "starter/handler_memory.h"
#include "starter/open_service_config.h"
#include "starter/options.h"
#include "starter/systemd_handler.h"

#include <ace/ACE.h>
#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_string.h>
#include <ace/OS_NS_sys_stat.h>
#include <ace/OS_NS_sys_utsname.h>
#include <ace/OS_NS_unistd.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Service_Config.h>
#include <ace/Signal.h>
#include <ace/Thread_Manager.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <grp.h>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#if __has_include("starter/version.h")
#include "starter/version.h" // written by the build
#else
#define STARTER_VERSION "0"
#define STARTER_REVISION "unknown"
#endif

namespace std
{
// The comparator has no state, so there is nothing to exchange.
template <>
[[gnu::visibility("default")]] void swap<less<string>>(less<string>&, less<string>&) noexcept
{
}

// Use alone leaves none of this in an optimised executable: all of it is inlined.
template struct less<string>;
template string::basic_string(const char*, const allocator<char>&);
template string::~basic_string();
} // namespace std

void init_stl_symbols()
{
  const std::string foo("foo");
  const std::string bar("bar");

  (void)std::less<std::string>()(foo, bar); // only instantiated, never asked
}

// ---- User and groups

ACE_INT64 parse_uid_gid(const char* s)
{
  char* end = nullptr;
  const long long value = std::strtoll(s, &end, 10);
  if (*end != '\0')
    return -1;
  if (value < 0 || value > 4294967295LL)
    return -1;

  return value;
}

static char* new_sysconf_buffer(int name, int default_, int item_size, unsigned& res)
{
  res = 0;
  long size = sysconf(name);
  if (size <= 0)
    size = default_;

  char* const buffer = new (std::nothrow) char[static_cast<std::size_t>(size) * static_cast<std::size_t>(item_size)];
  if (!buffer) {
    errno = ENOMEM;
    return nullptr;
  }

  res = static_cast<unsigned>(size);
  return buffer;
}

static char* get_uid(const char* user, unsigned& uid, unsigned* gid)
{
  uid = static_cast<unsigned>(-1);
  if (gid)
    *gid = static_cast<unsigned>(-1);

  const ACE_INT64 v = parse_uid_gid(user);
  unsigned size;
  const std::unique_ptr<char[]> buf(new_sysconf_buffer(_SC_GETPW_R_SIZE_MAX, 16384, 1, size));
  if (!buf) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, buf is NULL:\n%?\n");
    return nullptr;
  }

  struct passwd entry;
  struct passwd* found = nullptr;
  const int rc = v < 0 ? getpwnam_r(user, &entry, buf.get(), size, &found)
                       : getpwuid_r(static_cast<uid_t>(v), &entry, buf.get(), size, &found);
  if (!found) {
    errno = rc != 0 ? rc : ENOENT;
    LOG_RECORD(LM_ERROR, "Failed to get %C password entry, errno=%d, %m\n", user, errno);
    return nullptr;
  }

  uid = found->pw_uid;
  if (gid)
    *gid = found->pw_gid;
  return ACE::strnew(found->pw_name);
}

static char* get_gid(const char* group, unsigned& gid)
{
  gid = static_cast<unsigned>(-1);

  const ACE_INT64 v = parse_uid_gid(group);
  unsigned size;
  const std::unique_ptr<char[]> buf(new_sysconf_buffer(_SC_GETGR_R_SIZE_MAX, 16384, 1, size));
  if (!buf) {
    LOG_FAILED(LM_EMERGENCY, "Unexpected error in %N:%l, buf is NULL:\n%?\n");
    return nullptr;
  }

  struct group entry;
  struct group* found = nullptr;
  const int rc = v < 0 ? getgrnam_r(group, &entry, buf.get(), size, &found)
                       : getgrgid_r(static_cast<gid_t>(v), &entry, buf.get(), size, &found);
  if (!found) {
    errno = rc != 0 ? rc : ENOENT;
    LOG_RECORD(LM_ERROR, "Failed to get %C group entry, errno=%d, %m\n", group, errno);
    return nullptr;
  }

  gid = found->gr_gid;
  return ACE::strnew(found->gr_name);
}

static void add_supplementary_groups(const std::vector<const char*>& opt_groups)
{
  unsigned size = 0;
  const std::unique_ptr<char[]> buf(new_sysconf_buffer(_SC_NGROUPS_MAX, 65536, sizeof(gid_t), size));
  if (!buf)
    return;

  gid_t* const gids = reinterpret_cast<gid_t*>(buf.get());
  int n = getgroups(static_cast<int>(size), gids);
  if (n < 0) {
    LOG_FAILED(LM_ERROR, "Failed to get supplementary groups, errno=%d, %m\n", errno);
    n = 0;
  }

  for (const char* const text : opt_groups) {
    if (n >= static_cast<int>(size))
      break;
    const std::unique_ptr<char[]> group(get_gid(text, gids[n]));
    if (group)
      ++n;
  }

  if (setgroups(static_cast<std::size_t>(n), gids) < 0)
    LOG_FAILED(LM_ERROR, "Failed to set supplementary groups, errno=%d, %m\n", errno);
}

// Primary group, groups of the account, user, supplementary groups: operators rely on this order as it stands. The
// last step comes when a superuser has already become somebody else, and is then refused and logged.
static void switch_identity(const char* opt_user, const char* opt_group, const std::vector<const char*>& opt_groups)
{
  uid_t uid = static_cast<uid_t>(-1);
  gid_t gid = static_cast<gid_t>(-1);
  std::unique_ptr<char[]> user;
  std::unique_ptr<char[]> group;

  if (opt_group)
    group.reset(get_gid(opt_group, gid));
  if (opt_user)
    user.reset(get_uid(opt_user, uid, group ? nullptr : &gid));
  if (user && !group)
    group.reset(ACE::strnew(""));

  const uid_t ruid = getuid();
  const gid_t rgid = getgid();

  if (group && gid != rgid && setgid(gid) != 0)
    LOG_FAILED(LM_ERROR, "Failed to set gid to %u, errno=%d, %m\n", gid, errno);

  if (user) {
    if ((gid != rgid || uid != ruid) && initgroups(user.get(), gid) != 0)
      LOG_FAILED(LM_ERROR, "Failed to init groups by %C (uid=%u) and %C (gid=%u), errno=%d, %m\n", user.get(), uid,
                 group.get(), gid, errno);
    if (uid != ruid && setuid(uid) != 0)
      LOG_FAILED(LM_ERROR, "Failed to set uid to %u, errno=%d, %m\n", uid, errno);
  }

  if (!opt_groups.empty())
    add_supplementary_groups(opt_groups);
}

// ---- The reactor

static ACE_Reactor* create_reactor(const char* type, unsigned n)
{
  const make_reactor_t maker = get_reactor_factory(type, n);
  if (!maker) {
    LOG_RECORD(LM_ERROR, "Failed to get reactor factory by '%s'\n", type);
    return nullptr;
  }

  ACE_Reactor* const reactor = maker();
  if (!reactor) {
    LOG_RECORD(LM_ERROR, "Failed to create '%s' reactor\n", type);
    return nullptr;
  }

  if (n < 2)
    LOG_RECORD(LM_INFO, "Created '%s' reactor\n", type);
  else
    LOG_RECORD(LM_INFO, "Created '%s' reactor with %u threads\n", type, n);
  return reactor;
}

// The reactor that the command line asks for, owned by the caller, or null; `threads` is its number of loop threads.
// On the way there the process goes to the background and switches its identity, if it was asked to.
static ACE_Reactor* get_reactor(int argc, char** argv, unsigned& threads)
{
  threads = 0;

  const Starter_Options options = parse_options(argc, argv);

  if (options.background && ACE::daemonize("/", true, "<unknown>") == -1)
    return nullptr;

  switch_identity(options.opt_user, options.opt_group, options.opt_groups);

  if (!options.type || !*options.type)
    return nullptr;

  ACE_Reactor* const reactor = create_reactor(options.type, options.n);
  if (reactor)
    threads = options.n; // without a reactor of its own, the process has no use for threads
  return reactor;
}

// ---- Signals

using pthread_getname_np_t = int (*)(pthread_t, char*, std::size_t);

enum { THREAD_NAME_SIZE = 16, FAULT_GUARD_SEC = 5, MAX_POSTPONEMENTS = 1000 };

// An alarm and a used-up processor time are treated as faults on purpose.
static constexpr int FAULT_SIGNALS[] = {SIGILL, SIGSEGV, SIGFPE, SIGALRM, SIGXCPU, SIGBUS, SIGABRT};

static std::sig_atomic_t finished; // 1 from the first termination that found the event loop running
static pthread_getname_np_t pthread_getname;

// What the main thread does: loads services and runs a loop, or waits for the pool.
enum Host_Phase { NOT_STARTED, SINGLE, POOL };
static std::atomic<Host_Phase> host_phase{NOT_STARTED};
static pthread_t main_thread; // set before the phase

// The fault that ends the process: its thread, 0 while there is none, what it was, whether that has been logged, and
// how often that has been tried without a back trace.
static std::atomic<pid_t> faulting_thread;
static int fault_signo;
static char fault_thread_name[THREAD_NAME_SIZE];
static std::atomic<bool> fault_logged;
static std::atomic<int> short_records;

static void get_thread_name(char (&thread_name)[THREAD_NAME_SIZE])
{
  std::strncpy(thread_name, "unknown", sizeof thread_name); // fills the rest with zeros

  if (pthread_getname)
    (void)pthread_getname(ACE_OS::thr_self(), thread_name, sizeof thread_name); // failing, it leaves "unknown"
}

// Whether there is a process-wide reactor yet. Its accessor would make one, which is no work for a handler: the thread
// that it interrupts may be making it, and would then put its own in the place of one whose loop has been ended.
class Reactor_Slot : private ACE_Reactor
{
public:
  static bool is_filled() { return reactor_ != nullptr; }
};

// What end_reactor_event_loop does, without the reactor's token. That one is guarded by a plain mutex, and the thread
// that is interrupted may be inside of it: waiting for the token from here, it would wait for itself.
class Select_Loop : private ACE_Select_Reactor
{
public:
  static void end(ACE_Reactor& r, ACE_Select_Reactor& impl)
  {
    ACE_Time_Value no_wait(ACE_Time_Value::zero);

    impl.*(&Select_Loop::deactivated_) = 1;
    (void)r.notify(nullptr, ACE_Event_Handler::NULL_MASK, &no_wait); // a full pipe wakes the loop just as well
  }
};

static void end_event_loop(ACE_Reactor& r)
{
  if (ACE_Select_Reactor* const impl = dynamic_cast<ACE_Select_Reactor*>(r.implementation()))
    Select_Loop::end(r, *impl);
  else
    (void)r.end_reactor_event_loop(); // main looks at the loop, not at this result
}

// A record that is interrupted in the making stands in buffers of its thread, and one of the handler's takes its place
// there. Without this it would be lost, and the handler's would be there twice.
class Interrupted_Record
{
public:
  Interrupted_Record()
      : log_(*ACE_Log_Msg::instance()), line_(log_.linenum()), status_(log_.op_status()), error_(log_.errnum())
  {
    ACE_OS::strsncpy(text_, log_.msg(), sizeof text_);
    ACE_OS::strsncpy(file_, log_.file(), sizeof file_);
  }

  ~Interrupted_Record()
  {
    log_.msg(text_);
    log_.file(file_);
    log_.linenum(line_);
    log_.op_status(status_);
    log_.errnum(error_);
  }

  Interrupted_Record(const Interrupted_Record&) = delete;
  Interrupted_Record& operator=(const Interrupted_Record&) = delete;

private:
  ACE_Log_Msg& log_;
  const int line_;
  const int status_;
  const int error_;
  char text_[ACE_MAXLOGMSGLEN + 1];
  char file_[512]; // of our sources and those of services
};

static void sig_terminate(int signo)
{
  const ACE_Errno_Guard guard(errno);
  const Handler_Memory_Guard memory;
  const Interrupted_Record interrupted;
  char thread_name[THREAD_NAME_SIZE];
  get_thread_name(thread_name);

  LOG_RECORD(LM_INFO, "Signal %d (%s) caught in [%s].\n", signo, strsignal(signo), thread_name);

  if (finished != 0)
    return;
  if (!Reactor_Slot::is_filled()) {
    finished = 1; // main ends the loop of the reactor that comes
    return;
  }
  if (!ACE_Reactor::instance()->reactor_event_loop_done()) {
    finished = 1;
    end_event_loop(*ACE_Reactor::instance());
  }
}

// The record without the framework: the thread that hangs may hold the lock of the log, as one does that faulted while
// it was being made and got a log of its own. Nothing here takes a lock or memory.
static void write_fault()
{
  char text[128];
  const int len = std::snprintf(text, sizeof text, "Signal %d (%s) caught in [%s], the back trace:\n.\n", fault_signo,
                                sigdescr_np(fault_signo), fault_thread_name);
  (void)!::write(STDERR_FILENO, text, static_cast<std::size_t>(len)); // nothing is left to be done about it
}

// The first fault of the process writes the record and leaves; this is where every later one ends. It waits for that,
// unless it shows that the first one cannot get on: it is on the same thread, or it is the alarm.
[[noreturn]] static void give_up_fault(int signo)
{
  if (faulting_thread != gettid() && signo != SIGALRM)
    for (;;)
      pause();

  // Most likely the fault is the allocator's, and the back trace, which allocates, waits for its lock.
  const int tried = fault_logged ? 2 : short_records++;
  if (tried == 0 && faulting_thread == gettid()) {
    (void)alarm(1); // should this record hang too
    LOG_RECORD(LM_ALERT, "Signal %d (%s) caught in [%s], the back trace:\n.\n", fault_signo, strsignal(fault_signo),
               fault_thread_name);
    fault_logged = true;
  } else if (tried < 2)
    write_fault();
  _exit(0);
}

// Whatever the record and the exit run into, the process ends: another fault of this thread gets through to its
// handler, the same signal included, and the alarm comes when nothing else does.
static void guard_fault()
{
  sigset_t faults;
  sigemptyset(&faults);
  for (const int fault : FAULT_SIGNALS)
    sigaddset(&faults, fault);

  (void)pthread_sigmask(SIG_UNBLOCK, &faults, nullptr); // cannot fail with these arguments
  (void)alarm(FAULT_GUARD_SEC);                         // nobody else's alarm matters any more
}

// The exit handlers take the framework down while loop threads still run. What those stand on stays as it is: taken
// away, it makes them fault too, with locks that the exit waits for.
static void keep_loop_standing()
{
  if (Reactor_Slot::is_filled())
    ACE_Reactor::instance(ACE_Reactor::instance(), false);
  ACE_Thread_Manager::instance(ACE_Thread_Manager::instance()); // what is set this way is not deleted
}

static void sig_abnormal_terminate(int signo)
{
  const Handler_Memory_Guard memory;

  pid_t none = 0;
  if (!faulting_thread.compare_exchange_strong(none, gettid()))
    give_up_fault(signo);
  fault_signo = signo;
  get_thread_name(fault_thread_name);
  guard_fault();

  LOG_RECORD(LM_ALERT, "Signal %d (%s) caught in [%s], the back trace:\n%?.\n", signo, strsignal(signo),
             fault_thread_name);
  fault_logged = true;

  keep_loop_standing();
  // Status 0 for a fault too, and no core image: supervisors restart the process in any case and take the record
  // as the account of what happened.
  std::exit(0);
}

// Whether the handler that calls this has interrupted a reactor's wait. Anywhere else the thread may be changing what a
// reconfiguration needs: the heap, or the reactor, which also lets most signals through just where it holds a lock.
static bool interrupts_wait()
{
  void* frames[6]; // this function, the handler, the return from it and what was interrupted, with room to spare
  const int count = backtrace(frames, static_cast<int>(std::size(frames)));

  for (int i = 0; i < count; ++i) {
    Dl_info info;
    if (dladdr(frames[i], &info) != 0 && info.dli_sname &&
        (std::strstr(info.dli_sname, "select") || std::strstr(info.dli_sname, "epoll_wait")))
      return true;
  }
  return false;
}

// Have the signal sent to the process once more, in a millisecond. False when there is no timer to be had for it.
static bool send_again(int signo)
{
  static timer_t timer; // one for all times: signals that wait are one signal
  static bool is_made = false;

  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = signo;
  is_made = is_made || timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;

  itimerspec when = {};
  when.it_value.tv_nsec = 1000000;
  return is_made && timer_settime(timer, 0, &when, nullptr) == 0;
}

static void sig_reconfig(int signo)
{
  static int postponements = 0; // of the reconfiguration at hand, a millisecond each
  const ACE_Errno_Guard guard(errno);

  // Reconfigured while it is somewhere in its work, a thread may wait for itself. The main thread of a pool is not; a
  // single loop is soon back at its wait, and one that does not come back is not waited for.
  if (host_phase == POOL && !pthread_equal(pthread_self(), main_thread)) {
    (void)pthread_kill(main_thread, signo); // it is there as long as the pool is
    return;
  }
  if (host_phase == SINGLE && postponements < MAX_POSTPONEMENTS && !interrupts_wait() && send_again(signo)) {
    ++postponements;
    return;
  }
  postponements = 0;

  const Interrupted_Record interrupted; // by services too
  {
    const Handler_Memory_Guard memory; // not for the services: they stay
    LOG_RECORD(LM_INFO, "Signal %d (%s) caught, and reconfiguring ... \n", signo, strsignal(signo));
  }
  ACE_Service_Config::reconfigure();
}

static void sig_usr2(int)
{
  const ACE_Errno_Guard guard(errno);
  const Handler_Memory_Guard memory;
  const Interrupted_Record interrupted;
  const bool on = ACE::debug();

  LOG_RECORD(LM_INFO, "%s ACE::debug.\n", on ? "Disable" : "Enable");
  ACE::debug(!on);
}

void init_signal_handlers()
{
  sigset_t* const no_mask = nullptr;
  ACE_Sig_Set sset(false);

  // Through the framework's own wrapper the default scope is an invalid handle. Looked up before the first
  // disposition is installed, so that every handler sees the result.
  pthread_getname = reinterpret_cast<pthread_getname_np_t>(::dlsym(RTLD_DEFAULT, "pthread_getname_np"));
  (void)interrupts_wait(); // the first back trace loads a library, which is no work for a handler

  sset.sig_add(SIGINT);
  sset.sig_add(SIGQUIT);
  sset.sig_add(SIGTERM);
  const ACE_Sig_Action term_action(sset, sig_terminate, no_mask, 0);

  sset.empty_set();
  for (const int fault : FAULT_SIGNALS)
    sset.sig_add(fault);
  const ACE_Sig_Action abnormal_term_action(sset, sig_abnormal_terminate, no_mask, 0);

  sset.empty_set();
  sset.sig_add(SIGHUP);
  const ACE_Sig_Action reconfig_action(sset, sig_reconfig, no_mask, 0);

  sset.empty_set();
  sset.sig_add(SIGUSR2);
  const ACE_Sig_Action toggle_debug_action(sset, sig_usr2, no_mask, 0);

  sset.empty_set();
  sset.sig_add(SIGPIPE);
  sset.sig_add(SIGIO);
  sset.sig_add(SIGURG);
  const ACE_Sig_Action ignore_action(sset, SIG_IGN, no_mask, 0);
}

// ---- Services

const char* find_file_extension(const char* path)
{
  if (!path || !*path)
    return nullptr;

  return ACE_OS::strrchr(path, '.');
}

bool is_file_extension(const char* path, const char* ext)
{
  if (!ext || !*ext)
    return false;

  const char* const found = find_file_extension(path);
  return found && ACE_OS::strcmp(found + 1, ext) == 0;
}

bool is_regular_file(const char* path)
{
  ACE_stat st;

  return ACE_OS::stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

static bool do_open_service(int argc, char** argv)
{
  // The configurator would install a hang-up disposition of its own, which sets a flag that our loop never looks at.
  // Constructing one for signal 0 keeps it from that, and leaves -s its meaning. The singleton must exist by then:
  // its own construction sets the signal back.
  (void)ACE_Service_Config::singleton();
  const ACE_Service_Config without_signal(true, ACE_Service_Repository::DEFAULT_SIZE, 0);

  return ACE_Service_Config::open(argc, argv, ACE_DEFAULT_LOGGER_KEY, false, false, true) == 0;
}

// ---- What is known of the machine and the product

short get_vm_swappiness()
{
  const int fd = ::open("/proc/sys/vm/swappiness", O_RDONLY);
  if (fd == -1)
    return -1;

  int e = 0;
  short rc = -1;
  char buf[4];
  const ssize_t n = ::read(fd, buf, sizeof buf - 1);
  if (n < 0)
    e = errno;
  else if (n > 0) {
    buf[n] = '\0';
    rc = natoi<short, char*>(buf, nullptr, nullptr);
  }

  ::close(fd);
  if (e != 0)
    errno = e;
  return rc;
}

static void log_system_info()
{
  const short swappiness = get_vm_swappiness();
  if (swappiness < 0)
    LOG_RECORD(LM_ERROR, "Failed to get vm swappiness from /proc/sys/vm/swappiness, errno=%d, %m\n",
               ACE_OS::last_error());

  struct utsname uts;
  if (ACE_OS::uname(&uts) != 0)
    return;

  const int processors = static_cast<int>(ACE_OS::num_processors());
  const ACE_UINT64 memory = (get_system_memory() + 0x20000000) >> 30; // to the nearest GiB, halves up
  LOG_RECORD(LM_INFO,
             "system info: sysname=%s, nodename=%s, release=%s, version=%s, machine=%s, processors=%d, memory=%QG, "
             "nofile=%d, swappiness=%d\n",
             uts.sysname, uts.nodename, uts.release, uts.version, uts.machine, processors, memory, ACE::max_handles(),
             static_cast<int>(swappiness));
}

static void log_product_info()
{
  const std::string component = get_env_r("COMPONENT");

  if (!component.empty())
    LOG_RECORD(LM_INFO, "tessarin3-%s " STARTER_VERSION " (rev " STARTER_REVISION ") is started.\n", component.c_str());
  else
    LOG_RECORD(LM_INFO, "tessarin3 " STARTER_VERSION " (rev " STARTER_REVISION ") is started.\n");
}

// ---- The process

static int tried_throw; // entries into handle_terminate; one thread ends the process, so no atomic

void handle_terminate()
{
  if (tried_throw++ == 0) {
    try {
      throw; // without an active exception the runtime comes back to this handler
    } catch (const std::exception& e) {
      LOG_RECORD(LM_EMERGENCY, "Unhandled exception is caught, %s\n%?.\n", e.what());
    } catch (...) {
      LOG_RECORD(LM_EMERGENCY, "Unknown/unhandled exception is caught: \n%?.\n");
    }
  }

  std::abort();
}

// A loop thread of the pool. It does not come back to a loop that returned early, unlike the main thread's: kept.
static void* event_loop(void* arg)
{
  ACE_Reactor* const reactor = static_cast<ACE_Reactor*>(arg);

  reactor->owner(ACE_OS::thr_self());
  reactor->run_reactor_event_loop();
  return nullptr;
}

static void run_event_loop(unsigned threads)
{
  // A termination that arrived before there was a reactor has left it to us to end the loop.
  if (finished != 0 && !ACE_Reactor::instance()->reactor_event_loop_done())
    ACE_Reactor::instance()->end_reactor_event_loop();

  if (threads < 2) {
    ACE_Reactor::instance()->owner(ACE_OS::thr_self());
    while (!ACE_Reactor::instance()->reactor_event_loop_done())
      ACE_Reactor::instance()->run_reactor_event_loop();
    return;
  }

  host_phase = POOL;
  (void)ACE_Thread_Manager::instance()->spawn_n(
      threads, event_loop, ACE_Reactor::instance(), THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED,
      ACE_DEFAULT_THREAD_PRIORITY, -1, nullptr, nullptr, nullptr, nullptr, nullptr); // those that exist are waited for
  ACE_Thread_Manager::instance()->wait();
  host_phase = SINGLE;
}

int main(int argc, char** argv)
{
  std::set_terminate(handle_terminate);
  init_stl_symbols();

  unsigned threads = 0;
  std::unique_ptr<ACE_Reactor> recycler; // deletes the replaced reactor, after the configurator has been closed
  ACE_Reactor* const r = get_reactor(argc, argv, threads);
  if (r)
    recycler.reset(ACE_Reactor::instance(r, true));

  char host[64];
  if (ACE_OS::hostname(host, sizeof host) == 0)
    ACE_Log_Msg::instance()->local_host(host);

  main_thread = pthread_self();
  host_phase = SINGLE;
  init_signal_handlers(); // before services load: their threads start under our dispositions
  open_service_config(argc, argv, true, do_open_service);
  log_system_info();
  new_event_handler<Systemd_Handler>();
  log_product_info(); // the last record before the loop runs

  run_event_loop(threads);

  ACE_Service_Config::fini_svcs();
  ACE_Service_Config::close();
  return 0;
}
