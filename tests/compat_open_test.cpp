#include "scrt/compat_open.h"

#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Defined in compat_open_c_test.c.
extern "C"
{
int enable_fd_cloexec_from_c(int fd);
int o_cloexec_enabled_from_c(void);
}

using Calls = std::vector<std::string>;

// The faults of the C library. A failing call sets errno to EMFILE.
struct Faults
{
  bool no_null = false; // neither open nor fopen can open /dev/null
  bool no_zero = false;
  bool open_ignores_o_cloexec = false;
  bool fopen_ignores_e = false;
  bool fdopen_honours_e = false;      // no fault, but glibc ignores the letter
  bool fdopen_takes_any_mode = false; // even a mode to write for a descriptor to read from
  bool fdopen_fails = false;
  bool popen_ignores_e = false;
  bool popen_fails = false;
  bool getfd_fails = false;
  bool setfd_fails = false;
  bool has_more_flags = false; // a descriptor has another flag than FD_CLOEXEC
};

static constexpr int OTHER_FLAG = 2; // Linux has none

// The functions below are also called before main, while the program is loaded. Therefore all of these variables are
// initialised statically.
static Faults faults;
static Calls* calls = nullptr;          // where calls are written down, if they are
static bool with_mode = false;          // whether open gets a third argument always
static unsigned popens_before_main = 0; // those that no test has asked for

static void note(const std::string& call)
{
  if (calls)
    calls->push_back(call);
}

template <typename F>
static F next(const char* name)
{
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

static std::string flags_text(int flags)
{
  std::string text = (flags & O_ACCMODE) == O_RDONLY ? "O_RDONLY" : "O_WRONLY";
  for (const auto& [flag, name] : {std::pair(O_CREAT, "|O_CREAT"), std::pair(O_CLOEXEC, "|O_CLOEXEC"),
                                   std::pair(O_TMPFILE & ~O_DIRECTORY, "|O_TMPFILE")})
    if (flags & flag)
      text += name;
  return text;
}

static std::string fd_text(int fd)
{
  return fd == -1 ? "-1" : "fd";
}

static bool is_missing(const char* path)
{
  errno = EMFILE;
  return (faults.no_null && std::strcmp(path, "/dev/null") == 0) ||
         (faults.no_zero && std::strcmp(path, "/dev/zero") == 0);
}

static std::string without_e(std::string mode)
{
  mode.erase(std::remove(mode.begin(), mode.end(), 'e'), mode.end());
  return mode;
}

extern "C"
{
int next_open(const char* path, int flags, ...) __asm__("open64");
FILE* next_fopen(const char* path, const char* mode) __asm__("fopen64");
FILE* next_freopen(const char* path, const char* mode, FILE* fp) __asm__("freopen64");
FILE* next_fdopen(int fd, const char* mode) __asm__("fdopen");
FILE* next_popen(const char* command, const char* mode) __asm__("popen");
int next_pclose(FILE* fp) __asm__("pclose");
int next_fclose(FILE* fp) __asm__("fclose");
int next_close(int fd) __asm__("close");
int next_fcntl(int fd, int command, ...) __asm__("fcntl64");

int next_open(const char* path, int flags, ...)
{
  va_list args;
  va_start(args, flags);
  const mode_t mode = with_mode || (flags & O_CREAT) ? va_arg(args, mode_t) : 0;
  va_end(args);

  if (calls)
    note(std::string("open ") + path + ' ' + flags_text(flags) + (with_mode ? ' ' + std::to_string(mode) : ""));
  if (is_missing(path))
    return -1;
  return next<int (*)(const char*, int, ...)>("open64")(
      path, faults.open_ignores_o_cloexec ? flags & ~O_CLOEXEC : flags, mode);
}

FILE* next_fopen(const char* path, const char* mode)
{
  if (calls)
    note(std::string("fopen ") + path + ' ' + mode);
  if (is_missing(path))
    return nullptr;
  return next<FILE* (*)(const char*, const char*)>("fopen64")(path,
                                                              faults.fopen_ignores_e ? without_e(mode).c_str() : mode);
}

FILE* next_freopen(const char* path, const char* mode, FILE* fp)
{
  if (calls)
    note(std::string("freopen ") + path + ' ' + mode);
  return next<FILE* (*)(const char*, const char*, FILE*)>("freopen64")(
      path, faults.fopen_ignores_e ? without_e(mode).c_str() : mode, fp);
}

FILE* next_fdopen(int fd, const char* mode)
{
  if (calls)
    note("fdopen " + fd_text(fd) + ' ' + mode);
  if (faults.fdopen_fails) {
    errno = EMFILE;
    return nullptr;
  }
  FILE* const fp = next<FILE* (*)(int, const char*)>("fdopen")(fd, faults.fdopen_takes_any_mode ? "r" : mode);
  if (fp && faults.fdopen_honours_e && std::strchr(mode, 'e'))
    next<int (*)(int, int, ...)>("fcntl64")(fd, F_SETFD, FD_CLOEXEC);
  return fp;
}

FILE* next_popen(const char* command, const char* mode)
{
  if (calls)
    note(std::string("popen ") + command + ' ' + mode);
  else
    ++popens_before_main;
  if (faults.popen_fails) {
    errno = EMFILE;
    return nullptr;
  }
  return next<FILE* (*)(const char*, const char*)>("popen")(command,
                                                            faults.popen_ignores_e ? without_e(mode).c_str() : mode);
}

int next_pclose(FILE* fp)
{
  note("pclose");
  return next<int (*)(FILE*)>("pclose")(fp);
}

int next_fclose(FILE* fp)
{
  note("fclose");
  return next<int (*)(FILE*)>("fclose")(fp);
}

int next_close(int fd)
{
  const int result = next<int (*)(int)>("close")(fd);
  if (calls)
    note("close " + fd_text(fd) + " = " + std::to_string(result));
  return result;
}

int next_fcntl(int fd, int command, ...)
{
  va_list args;
  va_start(args, command);
  void* const arg = va_arg(args, void*);
  va_end(args);

  const long flags = reinterpret_cast<long>(arg);
  if (calls && command == F_GETFD)
    note("getfd");
  if (calls && command == F_SETFD)
    note("setfd " + std::to_string(static_cast<int>(flags)));
  if ((command == F_GETFD && faults.getfd_fails) || (command == F_SETFD && faults.setfd_fails)) {
    errno = EMFILE;
    return -1;
  }
  const int result = next<int (*)(int, int, ...)>("fcntl64")(fd, command, arg);
  return command == F_GETFD && result != -1 && faults.has_more_flags ? result | OTHER_FLAG : result;
}
}

// The real state of the flag, whatever fault fcntl has.
static bool is_close_on_exec(int fd)
{
  const int flags = next<int (*)(int, int, ...)>("fcntl64")(fd, F_GETFD);
  EXPECT_NE(-1, flags);
  return flags & FD_CLOEXEC;
}

struct Pointers
{
  open_cloexec_t open;
  fopen_compat_t fopen;
  freopen_compat_t freopen;
  fdopen_compat_t fdopen;
  popen_compat_t popen;
};

static Pointers current()
{
  return {open_cloexec, fopen_compat, freopen_compat, fdopen_compat, popen_compat};
}

static void install(const Pointers& pointers)
{
  open_cloexec = pointers.open;
  fopen_compat = pointers.fopen;
  freopen_compat = pointers.freopen;
  fdopen_compat = pointers.fdopen;
  popen_compat = pointers.popen;
}

static constexpr Pointers NONE{nullptr, nullptr, nullptr, nullptr, nullptr};

// Probes as at load time, with these faults of the C library.
static Pointers probe(const Faults& wrong)
{
  install(NONE);
  faults = wrong;
  init_compat_opens();
  faults = Faults();
  return current();
}

static Faults old_library()
{
  Faults f;
  f.open_ignores_o_cloexec = f.fopen_ignores_e = f.popen_ignores_e = true;
  return f;
}

static Faults new_library()
{
  Faults f;
  f.fdopen_honours_e = true;
  return f;
}

class compat_open : public ::testing::Test
{
protected:
  static void SetUpTestSuite() { at_load_ = current(); }

  void SetUp() override
  {
    calls = &discarded_;
    direct_ = probe(new_library());
    indirect_ = probe(old_library());
    install(at_load_);
    init_compat_opens();
    made_.clear();
    calls = &made_;
  }

  void TearDown() override
  {
    faults = Faults();
    with_mode = false;
    calls = &discarded_;
    install(at_load_);
    init_compat_opens();
    calls = nullptr;
  }

  // Makes the probe of one kind only, and returns the calls that it made.
  Calls probe_alone(const Faults& wrong, void (*leave_null)())
  {
    install(at_load_);
    leave_null();
    made_.clear();
    faults = wrong;
    init_compat_opens();
    faults = Faults();
    return made_;
  }

  static Pointers at_load_;

  Pointers direct_;   // the choice with a C library that honours everything
  Pointers indirect_; // the wrappers
  Calls made_;
  Calls discarded_;
  Temp_Dir dir_;
};

Pointers compat_open::at_load_;

TEST_F(compat_open, is_set_up_once_before_main)
{
  EXPECT_EQ(1u, popens_before_main);
  EXPECT_EQ(direct_.open, at_load_.open);
  EXPECT_EQ(fopen64, at_load_.fopen);
  EXPECT_EQ(freopen64, at_load_.freopen);
  EXPECT_EQ(indirect_.fdopen, at_load_.fdopen); // glibc ignores the letter there
  EXPECT_EQ(::popen, at_load_.popen);
  EXPECT_EQ(1, o_cloexec_enabled());
}

TEST_F(compat_open, leads_to_the_functions_of_a_c_library_that_honours_every_request)
{
  EXPECT_EQ(fopen64, direct_.fopen);
  EXPECT_EQ(freopen64, direct_.freopen);
  EXPECT_EQ(::fdopen, direct_.fdopen);
  EXPECT_EQ(::popen, direct_.popen);
}

TEST_F(compat_open, leads_to_wrappers_where_the_c_library_ignores_the_requests)
{
  EXPECT_NE(direct_.open, indirect_.open);
  EXPECT_NE(direct_.fopen, indirect_.fopen);
  EXPECT_NE(direct_.freopen, indirect_.freopen);
  EXPECT_NE(direct_.fdopen, indirect_.fdopen);
  EXPECT_NE(direct_.popen, indirect_.popen);
}

TEST_F(compat_open, probes_in_order)
{
  made_.clear();
  probe(Faults());

  EXPECT_EQ((Calls{"open /dev/null O_WRONLY|O_CLOEXEC", "getfd", "close fd = 0",                  //
                   "fopen /dev/null we", "getfd", "fclose",                                       //
                   "open /dev/null O_WRONLY", "fdopen fd we", "getfd", "fclose", "close fd = -1", //
                   "popen /bin/true re", "getfd", "pclose"}),
            made_);
}

TEST_F(compat_open, decides_about_open)
{
  Faults no_null;
  no_null.no_null = true;
  Faults nothing = no_null;
  nothing.no_zero = true;
  Faults ignored;
  ignored.open_ignores_o_cloexec = true;
  Faults zero_ignored = ignored;
  zero_ignored.no_null = true;
  Faults no_flags;
  no_flags.getfd_fails = true;

  const std::string null = "open /dev/null O_WRONLY|O_CLOEXEC";
  const std::string zero = "open /dev/zero O_RDONLY|O_CLOEXEC";
  const std::tuple<const char*, Faults, bool, Calls> cases[] = {
      {"honoured", Faults(), true, {null, "getfd", "close fd = 0"}},
      {"no /dev/null", no_null, true, {null, zero, "getfd", "close fd = 0"}},
      {"neither", nothing, false, {null, zero, "close -1 = -1"}},
      {"ignored", ignored, false, {null, "getfd", "close fd = 0"}},
      {"ignored for /dev/zero", zero_ignored, false, {null, zero, "getfd", "close fd = 0"}},
      {"flags unreadable", no_flags, false, {null, "getfd", "close fd = 0"}}};

  for (const auto& [name, wrong, honoured, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, probe_alone(wrong, [] { open_cloexec = nullptr; }));
    EXPECT_EQ(honoured ? direct_.open : indirect_.open, open_cloexec);
    EXPECT_EQ(honoured, o_cloexec_enabled());
  }
}

TEST_F(compat_open, decides_about_fopen_and_freopen_by_one_probe)
{
  Faults no_null;
  no_null.no_null = true;
  Faults nothing = no_null;
  nothing.no_zero = true;
  Faults ignored;
  ignored.fopen_ignores_e = true;
  Faults zero_ignored = ignored;
  zero_ignored.no_null = true;
  Faults no_flags;
  no_flags.getfd_fails = true;

  const std::string null = "fopen /dev/null we";
  const std::string zero = "fopen /dev/zero re";
  const std::tuple<const char*, Faults, bool, Calls> cases[] = {
      {"honoured", Faults(), true, {null, "getfd", "fclose"}},
      {"no /dev/null", no_null, true, {null, zero, "getfd", "fclose"}},
      {"neither", nothing, false, {null, zero}},
      {"ignored", ignored, false, {null, "getfd", "fclose"}},
      {"ignored for /dev/zero", zero_ignored, false, {null, zero, "getfd", "fclose"}},
      {"flags unreadable", no_flags, false, {null, "getfd", "fclose"}}};

  for (const auto& [name, wrong, honoured, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, probe_alone(wrong, [] { fopen_compat = nullptr, freopen_compat = nullptr; }));
    EXPECT_EQ(honoured ? fopen64 : indirect_.fopen, fopen_compat);
    EXPECT_EQ(honoured ? freopen64 : indirect_.freopen, freopen_compat);
  }
}

TEST_F(compat_open, decides_about_fdopen_and_closes_the_descriptor_twice)
{
  Faults honoured;
  honoured.fdopen_honours_e = true;
  Faults no_null = honoured;
  no_null.no_null = true;
  Faults any_mode; // this C library ignores the letter
  any_mode.no_null = any_mode.fdopen_takes_any_mode = true;
  Faults nothing = no_null;
  nothing.no_zero = true;
  Faults fails = honoured;
  fails.fdopen_fails = true;
  Faults no_flags = honoured;
  no_flags.getfd_fails = true;

  const std::string null = "open /dev/null O_WRONLY";
  const std::string zero = "open /dev/zero O_RDONLY|O_CLOEXEC";
  const std::string stream = "fdopen fd we";
  const std::tuple<const char*, Faults, bool, Calls> cases[] = {
      {"honoured", honoured, true, {null, stream, "getfd", "fclose", "close fd = -1"}},
      {"ignored", Faults(), false, {null, stream, "getfd", "fclose", "close fd = -1"}},
      {"flags unreadable", no_flags, false, {null, stream, "getfd", "fclose", "close fd = -1"}},
      {"no stream", fails, false, {null, stream, "close fd = 0"}},
      // The C library makes no stream to write to out of a descriptor to read from.
      {"no /dev/null", no_null, false, {null, zero, stream, "close fd = 0"}},
      // Kept: a C library that does so gets a descriptor with the flag, and therefore seems to honour the letter.
      {"any mode", any_mode, true, {null, zero, stream, "getfd", "fclose", "close fd = -1"}},
      {"neither", nothing, false, {null, zero, "close -1 = -1"}}};

  for (const auto& [name, wrong, direct, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, probe_alone(wrong, [] { fdopen_compat = nullptr; }));
    EXPECT_EQ(direct ? ::fdopen : indirect_.fdopen, fdopen_compat);
  }
}

TEST_F(compat_open, decides_about_popen)
{
  Faults ignored;
  ignored.popen_ignores_e = true;
  Faults fails;
  fails.popen_fails = true;
  Faults no_flags;
  no_flags.getfd_fails = true;

  const std::tuple<const char*, Faults, bool, Calls> cases[] = {
      {"honoured", Faults(), true, {"popen /bin/true re", "getfd", "pclose"}},
      {"ignored", ignored, false, {"popen /bin/true re", "getfd", "pclose"}},
      {"flags unreadable", no_flags, false, {"popen /bin/true re", "getfd", "pclose"}},
      {"no pipe", fails, false, {"popen /bin/true re"}}};

  for (const auto& [name, wrong, honoured, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(expected, probe_alone(wrong, [] { popen_compat = nullptr; }));
    EXPECT_EQ(honoured ? ::popen : indirect_.popen, popen_compat);
  }
}

TEST_F(compat_open, takes_the_wrappers_when_nothing_can_be_opened)
{
  Faults nothing = new_library();
  nothing.no_null = nothing.no_zero = true;
  const Pointers chosen = probe(nothing);

  EXPECT_EQ(indirect_.open, chosen.open);
  EXPECT_EQ(indirect_.fopen, chosen.fopen);
  EXPECT_EQ(indirect_.freopen, chosen.freopen);
  EXPECT_EQ(indirect_.fdopen, chosen.fdopen);
  EXPECT_EQ(::popen, chosen.popen); // depends on /bin/true only
  EXPECT_EQ(0, o_cloexec_enabled());
}

// The output of `work` to standard output and standard error, which are redirected to `file` meanwhile.
template <typename F>
static std::string output_of(const std::string& file, F work)
{
  fflush(nullptr);
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  const int out = dup(STDOUT_FILENO);
  const int err = dup(STDERR_FILENO);
  dup2(fd, STDOUT_FILENO);
  dup2(fd, STDERR_FILENO);
  close(fd);

  work();

  fflush(nullptr);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  close(out);
  close(err);
  return read_file(file);
}

TEST_F(compat_open, prints_nothing_when_a_probe_fails)
{
  Faults nothing;
  nothing.no_null = nothing.no_zero = nothing.popen_fails = true;
  Faults no_stream;
  no_stream.fdopen_fails = true;
  Faults no_flags;
  no_flags.getfd_fails = true;

  for (const Faults& wrong : {nothing, no_stream, no_flags, old_library()})
    EXPECT_EQ("", output_of(dir_ / "output", [&wrong = wrong] { probe(wrong); }));
}

static int own_open(const char*, int, ...)
{
  return -1;
}

static FILE* own_fopen(const char*, const char*)
{
  return nullptr;
}

static FILE* own_freopen(const char*, const char*, FILE*)
{
  return nullptr;
}

static FILE* own_fdopen(int, const char*)
{
  return nullptr;
}

TEST_F(compat_open, keeps_pointers_that_are_set_and_makes_no_call)
{
  install({own_open, own_fopen, own_freopen, own_fdopen, own_fopen});
  init_compat_opens();

  EXPECT_EQ(own_open, open_cloexec);
  EXPECT_EQ(own_fopen, fopen_compat);
  EXPECT_EQ(own_freopen, freopen_compat);
  EXPECT_EQ(own_fdopen, fdopen_compat);
  EXPECT_EQ(own_fopen, popen_compat);
  EXPECT_EQ(Calls(), made_);
}

TEST_F(compat_open, overwrites_both_stream_pointers_when_one_is_missing)
{
  install({own_open, own_fopen, nullptr, own_fdopen, own_fopen});
  init_compat_opens();
  EXPECT_EQ(fopen64, fopen_compat);
  EXPECT_EQ(freopen64, freopen_compat);

  install({own_open, nullptr, own_freopen, own_fdopen, own_fopen});
  init_compat_opens();
  EXPECT_EQ(fopen64, fopen_compat);
  EXPECT_EQ(freopen64, freopen_compat);
}

TEST_F(compat_open, tells_anew_at_every_call_whether_open_is_direct)
{
  open_cloexec = indirect_.open;
  EXPECT_EQ(1, o_cloexec_enabled()); // nobody has probed yet
  init_compat_opens();
  EXPECT_EQ(0, o_cloexec_enabled());

  open_cloexec = own_open; // anything but the wrapper
  init_compat_opens();
  EXPECT_EQ(1, o_cloexec_enabled());
}

TEST_F(compat_open, serves_a_c_library_that_ignores_o_cloexec)
{
  probe(old_library());
  EXPECT_EQ(indirect_.open, open_cloexec);
  EXPECT_EQ(0, o_cloexec_enabled());

  faults = old_library();
  const int fd = open_cloexec("/dev/null", O_RDONLY);
  ASSERT_NE(-1, fd);
  EXPECT_TRUE(is_close_on_exec(fd));
  close(fd);
}

TEST_F(compat_open, passes_the_mode_with_o_creat_only)
{
  const std::string file = dir_ / "file";
  const std::string spool = dir_.path();
  with_mode = true;

  for (const bool direct : {true, false}) {
    SCOPED_TRACE(direct);
    const open_cloexec_t opener = direct ? direct_.open : indirect_.open;
    const std::string suffix = direct ? "|O_CLOEXEC " : " ";
    const std::string unnamed = direct ? "|O_CLOEXEC|O_TMPFILE " : "|O_TMPFILE ";
    const std::tuple<std::string, int, std::string> cases[] = {
        {file, O_WRONLY | O_CREAT, "O_WRONLY|O_CREAT" + suffix + "928"}, // 01640
        {file, O_RDONLY, "O_RDONLY" + suffix + "0"},
        {spool, O_WRONLY | O_TMPFILE, "O_WRONLY" + unnamed + "0"}}; // kept: this flag needs a mode too

    for (const auto& [path, flags, expected] : cases) {
      made_.clear();
      const int fd = opener(path.c_str(), flags, 01640);
      ASSERT_NE(-1, fd) << expected;
      EXPECT_EQ("open " + path + ' ' + expected, made_.at(0));
      EXPECT_TRUE(is_close_on_exec(fd));
      close(fd);
    }

    struct stat st;
    ASSERT_EQ(0, stat(file.c_str(), &st));
    EXPECT_EQ(01640u, st.st_mode & 07777);
    unlink(file.c_str());
  }
}

TEST_F(compat_open, opens_directly_with_one_call)
{
  const int fd = direct_.open("/dev/null", O_WRONLY);

  EXPECT_EQ((Calls{"open /dev/null O_WRONLY|O_CLOEXEC"}), made_);
  close(fd);
}

TEST_F(compat_open, sets_the_flag_on_every_descriptor_opened_indirectly)
{
  const int fd = indirect_.open("/dev/null", O_WRONLY);
  EXPECT_EQ((Calls{"open /dev/null O_WRONLY", "getfd", "setfd 1"}), made_);
  EXPECT_TRUE(is_close_on_exec(fd));
  close(fd);

  made_.clear();
  const int asked = indirect_.open("/dev/null", O_WRONLY | O_CLOEXEC); // passed as it is
  EXPECT_EQ((Calls{"open /dev/null O_WRONLY|O_CLOEXEC", "getfd", "setfd 1"}), made_);
  close(asked);
}

TEST_F(compat_open, reports_the_error_of_open)
{
  for (const open_cloexec_t opener : {direct_.open, indirect_.open}) {
    made_.clear();
    errno = 0;
    const int fd = opener((dir_ / "missing").c_str(), O_RDONLY);
    const int reported = errno;

    EXPECT_EQ(-1, fd);
    EXPECT_EQ(ENOENT, reported);
    EXPECT_EQ(1u, made_.size());
  }
}

TEST_F(compat_open, keeps_a_descriptor_whose_flag_cannot_be_set)
{
  faults.getfd_fails = true;
  const int fd = indirect_.open("/dev/null", O_WRONLY);
  EXPECT_NE(-1, fd);
  EXPECT_EQ((Calls{"open /dev/null O_WRONLY", "getfd", "setfd -1"}), made_); // the results of both calls are ignored
  close(fd);

  faults = Faults();
  faults.setfd_fails = true;
  const int inheritable = indirect_.open("/dev/null", O_WRONLY);
  EXPECT_NE(-1, inheritable);
  EXPECT_FALSE(is_close_on_exec(inheritable));
  close(inheritable);
}

// Open a stream in four ways through the wrappers.
static FILE* open_stream(const Pointers& wrappers, const std::string& kind, const std::string& path, const char* mode)
{
  if (kind == "fopen")
    return wrappers.fopen(path.c_str(), mode);
  if (kind == "freopen") {
    [[maybe_unused]] static FILE* lost;
    FILE* const before = fopen("/dev/null", "r");
    FILE* const fp = wrappers.freopen(path.c_str(), mode, before);
    if (!fp)
      lost = before; // glibc closes a stream that it cannot reopen, but does not free it
    return fp;
  }
  if (kind == "popen")
    return wrappers.popen("exec cat", mode);

  const int fd = open(path.c_str(), O_RDONLY);
  FILE* const fp = wrappers.fdopen(fd, mode);
  if (!fp) {
    const int error = errno;
    close(fd);
    errno = error;
  }
  return fp;
}

static void close_stream(const std::string& kind, FILE* fp)
{
  if (kind == "popen")
    pclose(fp);
  else
    fclose(fp);
}

static const char* const stream_kinds[] = {"fopen", "freopen", "fdopen", "popen"};

// The calls of the wrapper itself, which follow the last call of the helper.
static Calls from(const Calls& made, const std::string& kind)
{
  auto first = made.end();
  for (auto i = made.begin(); i != made.end(); ++i)
    if (i->compare(0, kind.size(), kind) == 0)
      first = i;
  return Calls(first, made.end());
}

TEST_F(compat_open, sets_the_flag_on_streams_that_ask_for_it_only)
{
  for (const std::string kind : stream_kinds)
    for (const char* const mode : {"r", "re"}) {
      SCOPED_TRACE(kind + ' ' + mode);
      const bool asked = std::strchr(mode, 'e');
      const std::string path = "/dev/null";
      faults = old_library();
      made_.clear();
      FILE* const fp = open_stream(indirect_, kind, path, mode);
      const Calls made = from(made_, kind);

      ASSERT_NE(nullptr, fp);
      const std::string what = kind == "popen" ? "exec cat" : kind == "fdopen" ? "fd" : path;
      Calls expected{kind + ' ' + what + ' ' + mode}; // the letter is passed on
      if (asked)
        expected.insert(expected.end(), {"getfd", "setfd 1"});
      EXPECT_EQ(expected, made);
      EXPECT_EQ(asked, is_close_on_exec(fileno(fp)));
      close_stream(kind, fp);
    }
}

TEST_F(compat_open, finds_the_letter_wherever_it_stands_in_the_mode)
{
  for (const std::string kind : stream_kinds)
    for (const std::string mode : {"rbe", "reb", "er"}) {
      const bool is_popen = kind == "popen";
      if (is_popen != (mode == "er")) // popen knows no 'b', the others begin with the access
        continue;
      SCOPED_TRACE(kind + ' ' + mode);
      faults = old_library();
      FILE* const fp = open_stream(indirect_, kind, "/dev/null", mode.c_str());

      ASSERT_NE(nullptr, fp);
      EXPECT_TRUE(is_close_on_exec(fileno(fp)));
      close_stream(kind, fp);
    }
}

TEST_F(compat_open, reports_the_error_of_a_stream_that_does_not_open)
{
  for (const std::string kind : stream_kinds) {
    SCOPED_TRACE(kind);
    faults.fdopen_fails = faults.popen_fails = true;
    const bool by_path = kind == "fopen" || kind == "freopen";
    made_.clear();
    errno = 0;
    FILE* const fp = open_stream(indirect_, kind, by_path ? dir_ / "missing" : "/dev/null", "re");
    const int reported = errno;

    EXPECT_EQ(nullptr, fp);
    EXPECT_EQ(by_path ? ENOENT : EMFILE, reported);
    EXPECT_EQ(0, std::count(made_.begin(), made_.end(), "getfd"));
  }
}

TEST_F(compat_open, keeps_a_stream_whose_flag_cannot_be_set)
{
  for (const std::string kind : stream_kinds) {
    SCOPED_TRACE(kind);
    faults = old_library();
    faults.getfd_fails = true;
    made_.clear();
    FILE* const fp = open_stream(indirect_, kind, "/dev/null", "re");

    ASSERT_NE(nullptr, fp);
    EXPECT_EQ("setfd -1", made_.back());
    close_stream(kind, fp);

    faults = old_library();
    faults.setfd_fails = true;
    FILE* const inheritable = open_stream(indirect_, kind, "/dev/null", "re");

    ASSERT_NE(nullptr, inheritable);
    EXPECT_FALSE(is_close_on_exec(fileno(inheritable)));
    close_stream(kind, inheritable);
  }
}

TEST_F(compat_open, keeps_the_other_flags_of_a_descriptor)
{
  const std::string both = "setfd " + std::to_string(OTHER_FLAG | FD_CLOEXEC);
  faults = old_library();
  faults.has_more_flags = true;

  const int fd = indirect_.open("/dev/null", O_RDONLY);
  EXPECT_EQ(both, made_.back());
  for (const std::string kind : stream_kinds) {
    SCOPED_TRACE(kind);
    FILE* const fp = open_stream(indirect_, kind, "/dev/null", "re");
    ASSERT_NE(nullptr, fp);
    EXPECT_EQ(both, made_.back());
    close_stream(kind, fp);
  }

  EXPECT_EQ(0, enable_fd_cloexec(fd)); // the descriptor has the flag already
  EXPECT_EQ(both, made_.back());
  close(fd);
}

TEST_F(compat_open, asks_for_close_on_exec_with_one_letter_whatever_the_c_library_does)
{
  for (const Pointers& pointers : {at_load_, indirect_})
    for (const std::string kind : stream_kinds) {
      SCOPED_TRACE(kind);
      FILE* const fp = open_stream(pointers, kind, "/dev/null", "re");

      ASSERT_NE(nullptr, fp);
      EXPECT_TRUE(is_close_on_exec(fileno(fp)));
      close_stream(kind, fp);
    }
}

TEST_F(compat_open, makes_an_open_descriptor_close_on_exec)
{
  const int fd = open("/dev/null", O_RDONLY);
  ASSERT_FALSE(is_close_on_exec(fd));

  EXPECT_EQ(0, enable_fd_cloexec(fd));
  EXPECT_TRUE(is_close_on_exec(fd));
  EXPECT_EQ(0, enable_fd_cloexec(fd)); // a second call changes nothing
  EXPECT_TRUE(is_close_on_exec(fd));
  close(fd);
}

TEST_F(compat_open, reports_a_descriptor_that_is_closed)
{
  const int fd = open("/dev/null", O_RDONLY);
  close(fd);
  made_.clear();
  errno = 0;
  const int result = enable_fd_cloexec(fd);
  const int reported = errno;

  EXPECT_EQ(-1, result);
  EXPECT_EQ(EBADF, reported);
  EXPECT_EQ(Calls{"getfd"}, made_); // the result of this call is checked
}

TEST_F(compat_open, reports_a_flag_that_cannot_be_set)
{
  const int fd = open("/dev/null", O_RDONLY);
  faults.setfd_fails = true;
  errno = 0;
  const int result = enable_fd_cloexec(fd);
  const int reported = errno;

  EXPECT_EQ(-1, result);
  EXPECT_EQ(EMFILE, reported);
  close(fd);
}

TEST_F(compat_open, can_be_called_from_c)
{
  const int fd = open("/dev/null", O_RDONLY);
  EXPECT_EQ(0, enable_fd_cloexec_from_c(fd));
  EXPECT_TRUE(is_close_on_exec(fd));
  close(fd);

  EXPECT_EQ(1, o_cloexec_enabled_from_c());
  open_cloexec = indirect_.open;
  init_compat_opens();
  EXPECT_EQ(0, o_cloexec_enabled_from_c());
}
