#include "tests/support/logged.h"
#include "tests/support/requirements.h"
#include "tests/support/starter_process.h"
#include "tests/support/syscall_trace.h"
#include "tests/support/wait_until.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

static const std::string NOT_LOCATED = "service 'Static_Service' was not located.";

// The directive that loads a service which records its life under `name`.
static std::string recorder(const std::string& name, const std::string& arguments = "")
{
  return dynamic_directive(name, "recorder", "_make_Recorder", name + ' ' + arguments);
}

// The records of the test services, in order.
static std::vector<std::string> service_records(const Starter_Process& starter)
{
  std::vector<std::string> texts;
  for (const Record& record : starter.records())
    if (record.file.compare(0, 15, "tests/services/") == 0)
      texts.push_back(record.text.substr(0, record.text.find('\n')));
  return texts;
}

// Starts the executable in the directory `dir` instead of the one that Starter_Process makes.
static Start_Options probed_in(const Temp_Dir& dir)
{
  Start_Options options = probed();
  options.wrapper = {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", dir.path()};
  return options;
}

// Ends the process in order as soon as its log holds `record` and all its threads rest.
static void end_after(Starter_Process& starter, const std::string& record)
{
  ASSERT_TRUE(starter.wait_for_record(record)) << starter.log();
  ASSERT_TRUE(starter.wait_until_idle()) << starter.log();
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();
}

TEST(service_config_process, loads_the_files_of_a_directory_in_byte_order_and_finalises_in_reverse)
{
  const Temp_Dir dir;
  dir.write("x.d/b.conf", recorder("b"));
  dir.write("x.d/a.conf", recorder("a1") + recorder("a2"));
  dir.write("x.d/A.conf", recorder("A"));
  dir.write("x.d/c.conf.bak", recorder("c"));

  Starter_Process starter({"--reactor", "tp", "--threads", "2", "-f", dir / "x.d"}, probed());
  end_after(starter, "b starts.");

  EXPECT_THAT(service_records(starter),
              ElementsAre("A starts.", "a1 starts.", "a2 starts.", "b starts.", "b stops.", "b is deleted.",
                          "a2 stops.", "a2 is deleted.", "a1 stops.", "a1 is deleted.", "A stops.", "A is deleted."));
}

// A name that reached the configurator as anything but one argument took later files and options with it.
TEST(service_config_process, loads_a_file_of_a_directory_whatever_its_name)
{
  for (const char* const name :
       {"it's.conf", "a\"b.conf", "x\"y.conf", "back\\.conf", "a\tb.conf", "a\nb.conf", "a b.conf"}) {
    SCOPED_TRACE(name);
    const Temp_Dir dir;
    dir.write("svc.conf", recorder("default"));
    dir.write("x.d/0.conf", recorder("first"));
    dir.write(std::string("x.d/") + name, recorder("named"));
    dir.write("x.d/~.conf", recorder("later"));

    Starter_Process starter({"-f", "x.d", "-S", recorder("last")}, probed_in(dir));
    end_after(starter, "last starts.");

    std::vector<std::string> started = service_records(starter);
    started.resize(4);
    EXPECT_THAT(started, ElementsAre("first starts.", "named starts.", "later starts.", "last starts."));
  }
}

// Each file of the first directory is processed again, and new services replace those of the same names.
TEST(service_config_process, loads_the_files_of_the_first_of_two_directories_again)
{
  const Temp_Dir dir;
  dir.write("a.d/a.conf", recorder("a"));
  dir.write("b.d/b.conf", recorder("b"));

  Starter_Process starter({"-f", dir / "a.d", "-f", dir / "b.d"}, probed());
  end_after(starter, "b starts.");

  EXPECT_THAT(service_records(starter), ElementsAre("a starts.", "a stops.", "a is deleted.", "a starts.", "b starts.",
                                                    "b stops.", "b is deleted.", "a stops.", "a is deleted."));
}

TEST(service_config_process, hands_the_arguments_of_a_directive_to_the_service)
{
  const Temp_Dir dir;
  const std::string file = dir.write("services", recorder("a", "-x 'two words'"));

  Starter_Process starter({"-f", file}, probed());
  end_after(starter, "a starts.");

  EXPECT_EQ("a starts. [-x] [two words]", service_records(starter).at(0));
}

TEST(service_config_process, processes_directives_of_the_command_line_after_the_files)
{
  const Temp_Dir dir;
  const std::string file = dir.write("services", recorder("a"));

  Starter_Process starter({"-S", recorder("b"), "-f", file, "-S", "remove a"}, probed());
  end_after(starter, "a is deleted.");

  EXPECT_THAT(service_records(starter),
              ElementsAre("a starts.", "b starts.", "a stops.", "a is deleted.", "b stops.", "b is deleted."));
}

TEST(service_config_process, processes_svc_conf_when_no_file_is_given)
{
  const Temp_Dir dir;
  dir.write("svc.conf", recorder("default"));
  dir.write("empty.d/none.txt", "");
  const std::string file = dir.write("services", recorder("a"));
  const std::tuple<const char*, std::vector<std::string>, const char*> cases[] = {
      {"nothing given", {}, "default starts."},
      {"a directory without files", {"-f", "empty.d"}, "default starts."},
      {"a file given", {"-f", file}, "a starts."},
      {"a directive given", {"-S", recorder("a")}, "default starts."}};

  for (const auto& [name, args, first] : cases) {
    SCOPED_TRACE(name);
    Starter_Process starter(args, probed_in(dir));
    end_after(starter, args == std::vector<std::string>{"-S", recorder("a")} ? "a starts." : first);
    EXPECT_EQ(first, service_records(starter).at(0));
  }
}

TEST(service_config_process, goes_on_when_a_load_fails)
{
  const Temp_Dir dir;
  const std::string not_a_library = dir.write("libnone.so", "not a library");
  const std::string broken = "dynamic broken Service_Object * ";
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {"an init that fails", recorder("broken", "fails"), "broken starts. [fails]"},
      {"a library that does not load", broken + not_a_library + ":_make_Recorder() \"broken\"\n", nullptr},
      {"a missing library", broken + dir.path() + "/libmissing.so:_make_Recorder() \"broken\"\n", nullptr},
      {"a missing factory", dynamic_directive("broken", "recorder", "_make_Nothing", "broken"), nullptr}};

  for (const auto& [name, directive, record] : cases) {
    SCOPED_TRACE(name);
    const std::string file = dir.write("services", recorder("a") + directive + recorder("b"));
    Starter_Process starter({"--reactor", "select", "-f", file, "-S", recorder("c")}, probed());
    end_after(starter, "c starts.");

    std::vector<std::string> expected{"a starts.", "b starts.",     "c starts.", "c stops.",     "c is deleted.",
                                      "b stops.",  "b is deleted.", "a stops.",  "a is deleted."};
    if (record)
      expected.insert(expected.begin() + 1, {record, "broken is deleted."});
    EXPECT_EQ(expected, service_records(starter));
  }
}

TEST(service_config_process, goes_on_after_a_syntax_error)
{
  const Temp_Dir dir;
  dir.write("x.d/a.conf", "this is no directive\n");
  dir.write("x.d/b.conf", recorder("b"));

  Starter_Process starter({"-f", dir / "x.d"}, probed());
  end_after(starter, "b starts.");

  EXPECT_THAT(starter.log(), HasSubstr("on line 1: syntax error"));
  EXPECT_THAT(service_records(starter), ElementsAre("b starts.", "b stops.", "b is deleted."));
}

// The configurator gives up at the first file that it cannot open, and logs this only with the option -d.
TEST(service_config_process, goes_on_without_services_after_a_missing_file)
{
  const Temp_Dir dir;
  const std::string file = dir.write("services", recorder("a"));
  const std::vector<std::string> args{"--reactor", "tp", "--threads", "2",  "-f",
                                      "missing",   "-f", file,        "-S", recorder("b")};

  Starter_Process silent(args, probed());
  ASSERT_TRUE(silent.wait_for_threads(3)) << silent.log();
  silent.send(SIGTERM);
  EXPECT_EQ(0, silent.wait_status()) << silent.log();
  EXPECT_THAT(service_records(silent), IsEmpty());
  EXPECT_THAT(silent.log(), Not(HasSubstr("missing")));

  std::vector<std::string> debug_args = args;
  debug_args.insert(debug_args.begin(), "-d");
  Starter_Process debugging(debug_args, probed());
  end_after(debugging, "missing: No such file or directory");
  EXPECT_THAT(service_records(debugging), IsEmpty());
}

// The records about files that cannot be read, in order, each as one line of status, file and text.
static std::vector<Logged> failures_to_read(const Starter_Process& starter)
{
  std::vector<Logged> failures;
  for (const Record& record : starter.records())
    if (record.text.find("Failed to read ") == 0)
      failures.push_back(with_file(record));
  return failures;
}

static Logged left_out(const std::string& file, const std::string& reason = "errno=21, Is a directory")
{
  return error_failed("Failed to read " + file + ", which is left out, " + reason + '\n').in("starter/starter.cpp");
}

// The framework's scanner ends the process when it has opened what it cannot read.
TEST(service_config_process, leaves_out_what_opens_and_cannot_be_read)
{
  const Temp_Dir dir;
  dir.write("directory/x.conf", recorder("x"));
  dir.write("a", recorder("a"));
  dir.write("b", recorder("b"));
  dir.write("svc.conf", recorder("d")); // is not read where a file is given, though the file is left out
  const std::vector<std::string> files{"a starts.", "b starts.", "c starts."};
  const std::tuple<const char*, std::vector<std::string>, std::vector<std::string>, Logged> cases[] = {
      {"a variable", {"-f", "a", "-f", "$DIRECTORY", "-f", "b"}, files, left_out("directory")},
      {"a variable in a path", {"-f", "a", "-f", "./$DIRECTORY/", "-f", "b"}, files, left_out("./directory/")},
      {"a failing read",
       {"-f", "a", "-f", "/proc/self/mem", "-f", "b"},
       files,
       left_out("/proc/self/mem", "errno=5, Input/output error")},
      {"no other file", {"-f", "$DIRECTORY"}, {"c starts."}, left_out("directory")},
      {"taken out of a value", {"-p", "-f$DIRECTORY", "-f", "a"}, {"a starts.", "c starts."}, left_out("directory")},
      {"taken out of a value, no other file", {"-p", "-f$DIRECTORY"}, {"c starts."}, left_out("directory")}};

  for (const auto& [name, options, started, record] : cases) {
    SCOPED_TRACE(name);
    Start_Options start = probed_in(dir);
    start.env["DIRECTORY"] = "directory";
    std::vector<std::string> args = options;
    args.insert(args.end(), {"-S", recorder("c")});
    Starter_Process starter(args, start);
    end_after(starter, "c starts.");

    EXPECT_THAT(failures_to_read(starter), ElementsAre(record));
    std::vector<std::string> records = service_records(starter);
    records.resize(started.size());
    EXPECT_EQ(started, records);
    EXPECT_EQ(1u, starter.count("is started.")) << starter.log();
  }
}

TEST(service_config_process, leaves_out_a_default_file_that_cannot_be_read)
{
  const Temp_Dir dir;
  dir.write("svc.conf/x.conf", recorder("x"));
  const std::string file = dir.write("a", recorder("a"));

  Starter_Process starter({"-S", recorder("a")}, probed_in(dir));
  end_after(starter, "a starts.");
  EXPECT_THAT(failures_to_read(starter), ElementsAre(left_out("./svc.conf")));

  Starter_Process other({"-f", file}, probed_in(dir)); // does not look at it
  end_after(other, "a starts.");
  EXPECT_THAT(failures_to_read(other), IsEmpty());
}

// The configurator changes its working directory before it opens the first file. It looks for its background option
// among the values of other options too.
TEST(service_config_process, leaves_out_a_directory_that_is_one_in_the_background_only)
{
  const std::vector<std::string> cases[] = {{"-b"}, {"-k", "-b"}, {"-k", "key", "-b"}};
  for (std::vector<std::string> args : cases) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const Temp_Dir dir;
    args.insert(args.end(), {"-p", dir / "pid", "-f", "etc", "-S", recorder("a")});
    Starter_Process starter(args, probed());
    ASSERT_EQ(0, starter.wait_status());
    const auto have_record = [&](const std::string& text) {
      const std::vector<std::string> texts = service_records(starter);
      return std::count(texts.begin(), texts.end(), text) == 1;
    };
    ASSERT_TRUE(wait_until([&] { return have_record("a starts."); }));

    EXPECT_THAT(failures_to_read(starter), ElementsAre(left_out("etc")));

    kill(static_cast<pid_t>(std::stol(read_file(dir / "pid"))), SIGTERM);
    EXPECT_TRUE(wait_until([&] { return have_record("a is deleted."); }));
  }
}

// Starts the executable with `call` failing on the file `path`, as the rest of strace's option "inject" says.
static Start_Options with_injection(const std::string& path, const std::string& call, const std::string& failure)
{
  Start_Options options = probed();
  options.wrapper = {
      "strace", "-D", "-o", "/dev/null", "-P", path, "-e", "trace=" + call, "-e", "inject=" + call + ':' + failure};
  make_traceable(options);
  return options;
}

// It is passed on as a file then, and opens well when a descriptor is free again.
TEST(service_config_process, leaves_out_a_directory_for_which_there_was_no_descriptor)
{
  NEEDS(can_trace(), "strace and the right to trace processes");

  for (const char* const refusals : {"error=EMFILE:when=1", "error=EMFILE:when=1..2", "error=ENFILE:when=1..2"}) {
    SCOPED_TRACE(refusals);
    const Temp_Dir dir;
    dir.write("x.d/x.conf", recorder("x"));
    Starter_Process starter({"-f", dir / "x.d", "-S", recorder("a")}, with_injection(dir / "x.d", "openat", refusals));
    end_after(starter, "a starts.");

    EXPECT_THAT(failures_to_read(starter), ElementsAre(left_out(dir / "x.d")));
  }
}

// It opens as well when a descriptor is free again, and there is nothing wrong with it.
TEST(service_config_process, leaves_a_file_for_which_there_was_no_descriptor_to_the_configurator)
{
  NEEDS(can_trace(), "strace and the right to trace processes");
  const Temp_Dir dir;
  const std::string file = dir.write("file", recorder("x"));
  Starter_Process starter({"-f", file}, with_injection(file, "openat", "error=EMFILE:when=1..2"));
  end_after(starter, "x starts.");

  EXPECT_THAT(failures_to_read(starter), IsEmpty());
}

// The file is tried to its end. Only the first attempts fail, so that the configurator itself can read the file.
TEST(service_config_process, leaves_out_a_file_only_when_reading_it_fails)
{
  NEEDS(can_trace(), "strace and the right to trace processes");
  const Temp_Dir dir;
  const std::string file = dir.write("file", std::string(5000, '\n') + recorder("x")); // takes two reads
  const std::vector<Logged> failure{left_out(file, "errno=5, Input/output error")};
  const std::tuple<const char*, std::vector<Logged>> cases[] = {{"error=EIO:when=1", failure},
                                                                {"error=EIO:when=2", failure},
                                                                {"error=EINTR:when=1", {}},
                                                                {"error=EAGAIN:when=1", {}}};

  for (const auto& [failing, records] : cases) {
    SCOPED_TRACE(failing);
    Starter_Process starter({"-f", file, "-S", recorder("a")}, with_injection(file, "read", failing));
    end_after(starter, "a starts.");

    EXPECT_EQ(records, failures_to_read(starter));
    EXPECT_EQ(records.empty() ? 1u : 0u, starter.count("x starts.")) << starter.log();
  }
}

TEST(service_config_process, leaves_out_a_directory_although_reading_it_is_interrupted_or_closing_it_fails)
{
  NEEDS(can_trace(), "strace and the right to trace processes");
  const Temp_Dir dir;
  dir.write("x.d/x.conf", recorder("x"));

  for (const auto& [call, failure] : {std::pair{"read", "error=EINTR:when=1"}, {"close", "error=EIO"}}) {
    SCOPED_TRACE(call);
    Start_Options options = with_injection(dir / "x.d", call, failure);
    options.env["DIRECTORY"] = dir / "x.d";
    Starter_Process starter({"-f", "$DIRECTORY", "-S", recorder("a")}, options);
    end_after(starter, "a starts.");

    EXPECT_THAT(failures_to_read(starter), ElementsAre(left_out(dir / "x.d")));
  }
}

// The configurator reads its arguments in its own way, so what looks like one of its options may be a value.
TEST(service_config_process, takes_no_value_of_another_option_for_a_file_or_for_the_background)
{
  const Temp_Dir dir;
  dir.write("directory/x.conf", recorder("x"));
  dir.write("a", recorder("a"));
  const std::vector<std::string> cases[] = {{"-k", "-f$DIRECTORY", "-f", "a"},
                                            {"-S", "-f$DIRECTORY", "-f", "a"},
                                            {"-p", "-b", "-f", "etc"},
                                            {"-s", "-b", "-f", "etc"}};

  for (const std::vector<std::string>& args : cases) {
    SCOPED_TRACE(::testing::PrintToString(args));
    Start_Options options = probed_in(dir);
    options.env["DIRECTORY"] = "directory";
    Starter_Process starter(args, options);
    end_after(starter, "is started.");

    EXPECT_THAT(failures_to_read(starter), IsEmpty()); // the directory /etc is none of the files
  }
}

// Whether the program, not what has been forked to become it, has the file open.
static bool has_opened(const Starter_Process& starter, const std::string& path)
{
  const std::string name = fs::path(starter_executable()).filename();
  if (starter.status_field("Name") != name.substr(0, 15))
    return false;

  std::error_code ignored; // a process that has ended has nothing open
  for (const auto& fd : fs::directory_iterator("/proc/" + std::to_string(starter.pid()) + "/fd", ignored))
    if (fs::read_symlink(fd, ignored) == path)
      return true;
  return false;
}

// A pipe loses what is read from it to try it.
TEST(service_config_process, leaves_a_pipe_to_the_configurator)
{
  const Temp_Dir dir;
  const std::string pipe = dir / "pipe";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const std::string directives = recorder("a");
  const int fd = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(static_cast<ssize_t>(directives.size()), write(fd, directives.data(), directives.size()));

  Starter_Process starter({"-f", pipe}, probed());
  ASSERT_TRUE(starter.wait_until([&] { return has_opened(starter, pipe); })) << starter.log();
  close(fd); // the end of the text
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  end_after(starter, "a starts.");

  EXPECT_THAT(failures_to_read(starter), IsEmpty());
}

TEST(service_config_process, leaves_a_terminal_to_the_configurator)
{
  const int fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  NEEDS(fd != -1 && grantpt(fd) == 0 && unlockpt(fd) == 0, "a pseudo-terminal");
  const std::string text = recorder("a") + "\x04\x04"; // the end of the text, for whoever asks twice
  ASSERT_EQ(static_cast<ssize_t>(text.size()), write(fd, text.data(), text.size()));

  Starter_Process starter({"-f", ptsname(fd)}, probed());
  end_after(starter, "a starts.");
  EXPECT_THAT(failures_to_read(starter), IsEmpty());
  close(fd);
}

static const std::vector<std::string> KINDS_OF_LOOPS[] = {
    {}, {"--reactor", "tp", "--threads", "2"}, {"--reactor", "dev_poll"}, {"--reactor", "select"}};

TEST(service_config_process, goes_on_with_its_services_when_a_file_cannot_be_read_any_more)
{
  for (const std::vector<std::string>& loop : KINDS_OF_LOOPS) {
    SCOPED_TRACE(::testing::PrintToString(loop));
    const Temp_Dir dir;
    const std::string first = dir.write("first", recorder("a"));
    const std::string second = dir.write("second", recorder("b"));
    std::vector<std::string> args = loop;
    args.insert(args.end(), {"-f", first, "-f", second});
    Starter_Process starter(args, probed());
    ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
    ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

    ASSERT_EQ(0, unlink(second.c_str()));
    ASSERT_EQ(0, mkdir(second.c_str(), 0777));
    starter.send(SIGHUP);
    ASSERT_TRUE(starter.wait_for_record("Failed to read ")) << starter.log();
    ASSERT_TRUE(starter.wait_until_idle()) << starter.log();
    EXPECT_THAT(service_records(starter), ElementsAre("a starts.", "b starts."));
    EXPECT_FALSE(has_opened(starter, second));

    ASSERT_EQ(0, rmdir(second.c_str()));
    dir.write("second", recorder("c"));
    starter.send(SIGHUP);
    end_after(starter, "c starts.");

    EXPECT_THAT(failures_to_read(starter), ElementsAre(error_failed("Failed to read " + second +
                                                                    ", nothing is reloaded, errno=21, Is a directory\n")
                                                           .in("starter/starter.cpp")));
    EXPECT_EQ(2u, starter.count("caught, and reconfiguring")) << starter.log();
  }
}

// The framework stops at a file that it cannot open, so nothing behind it is a threat.
TEST(service_config_process, leaves_a_file_that_cannot_be_opened_any_more_to_the_configurator)
{
  const Temp_Dir dir;
  const std::string first = dir.write("first", recorder("a"));
  const std::string second = dir.write("second", recorder("b"));
  const std::string third = dir.write("third", recorder("c"));
  Starter_Process starter({"-f", first, "-f", second, "-f", third}, probed());
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();

  ASSERT_EQ(0, unlink(second.c_str()));
  ASSERT_EQ(0, unlink(third.c_str()));
  ASSERT_EQ(0, mkdir(third.c_str(), 0777));
  starter.send(SIGHUP);
  ASSERT_TRUE(starter.wait_for_record("a starts.", 2)) << starter.log();
  end_after(starter, "process_directives: No such file or directory");

  EXPECT_THAT(failures_to_read(starter), IsEmpty());
}

// Many paths take many pieces of memory, of which most are free when the configurator is open.
TEST(service_config_process, gives_memory_that_loading_has_used_back_to_the_system)
{
  NEEDS(can_trace(), "strace and the right to trace processes");
  const Temp_Dir dir;
  for (int n = 0; n < 500; ++n)
    dir.write(std::to_string(n) + ".conf", "");
  const Syscall_Trace trace("madvise");
  Start_Options options;
  trace.apply_to(options);

  Starter_Process starter({"-f", dir.path()}, options);
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGTERM);
  ASSERT_EQ(0, starter.wait_status()) << starter.log();

  EXPECT_THAT(trace.calls(starter.pid()), Contains(HasSubstr("MADV_DONTNEED")));
}

TEST(service_config_process, goes_on_without_services_when_there_is_no_memory_for_the_arguments)
{
  Starter_Process starter({"-S", recorder("a")}, with_fault("FAULT_STRDUP"));
  ASSERT_TRUE(starter.wait_for_record("is started.")) << starter.log();
  ASSERT_TRUE(starter.wait_for_event_loop()) << starter.log();
  starter.send(SIGHUP); // the configurator has not been opened
  end_after(starter, "caught, and reconfiguring");
  EXPECT_EQ(0u, starter.count("the back trace:")) << starter.log();

  EXPECT_THAT(starter.command_line_records(),
              ElementsAre(error_failed("Failed to build the arguments of the service configurator, "
                                       "errno=12, Cannot allocate memory\n")
                              .in("starter/starter.cpp")));
  EXPECT_THAT(service_records(starter), IsEmpty());
}

TEST(service_config_process, shows_a_failing_load_when_debugging_was_asked_for_first)
{
  const Temp_Dir dir;
  const std::string directive = dynamic_directive("a", "no_such_library", "_make_Recorder");
  const std::string file = dir.write("services", directive);

  Starter_Process starter({"-d", "-f", file, "-S", recorder("b")}, probed());
  end_after(starter, "b starts.");

  EXPECT_THAT(starter.log(), HasSubstr("DLL_Handle::open (\"" + service_library("no_such_library") + "\")"));
}

TEST(service_config_process, offers_static_services_unless_told_otherwise)
{
  const std::tuple<std::vector<std::string>, bool> cases[] = {
      {std::vector<std::string>{}, true}, {{"-y"}, true}, {{"-n"}, false}, {{"-n", "-y"}, true}, {{"-yn"}, false}};
  Start_Options options = probed();
  options.preload = {service_library("static_service")};

  for (const auto& [flags, offered] : cases) {
    SCOPED_TRACE(::testing::PrintToString(flags));
    std::vector<std::string> args = flags;
    args.insert(args.end(), {"-S", "static Static_Service \"x\"", "-S", recorder("last")});
    Starter_Process starter(args, options);
    end_after(starter, "last starts.");

    EXPECT_EQ(offered ? 1u : 0u, starter.count("The static service starts.")) << starter.log();
    EXPECT_EQ(offered ? 0u : 1u, starter.count(NOT_LOCATED)) << starter.log();
  }
}

TEST(service_config_process, takes_a_logger_key_without_connecting_to_it)
{
  Starter_Process starter({"-k", "127.0.0.1:1", "-S", recorder("a")}, probed());
  end_after(starter, "a starts.");

  EXPECT_THAT(service_records(starter), ElementsAre("a starts.", "a stops.", "a is deleted."));
}

TEST(service_config_process, writes_its_process_id_to_a_file)
{
  Starter_Process starter({"-p", "the pid", "-S", recorder("a")}, probed());
  end_after(starter, "a starts.");

  EXPECT_EQ(std::to_string(starter.pid()) + '\n', read_file(starter.dir() / "the pid"));
}

TEST(service_config_process, catches_the_signal_named_for_the_configurator)
{
  Starter_Process starter({"-s", std::to_string(SIGUSR1), "-S", recorder("a")}, probed());
  ASSERT_TRUE(starter.wait_for_record("a starts.")) << starter.log();

  EXPECT_THAT(signals_in_mask(starter.status_field("SigCgt")), ::testing::Contains(SIGUSR1));

  starter.send(SIGTERM);
  EXPECT_EQ(0, starter.wait_status()) << starter.log();
}

TEST(service_config_process, goes_on_without_services_after_an_impossible_signal_number)
{
  const Temp_Dir dir;
  const std::string file = dir.write("services", recorder("a"));

  for (const char* const signo : {"0", "-1", "99", "usr1"}) {
    SCOPED_TRACE(signo);
    Starter_Process starter({"-s", signo, "-f", file, "-S", recorder("b")}, probed());
    end_after(starter, "cannot obtain signal handler");

    EXPECT_THAT(service_records(starter), IsEmpty());
  }
}

// There is no service whose record could show that the process has reached its loop.
TEST(service_config_process, runs_without_any_service)
{
  Starter_Process starter({"--reactor", "tp", "--threads", "2"}, probed());
  ASSERT_TRUE(starter.wait_for_threads(3)) << starter.log();

  starter.send(SIGTERM);

  EXPECT_EQ(0, starter.wait_status()) << starter.log();
  EXPECT_THAT(service_records(starter), IsEmpty());
}

// The steps of the shutdown up to the end of main. At exit the framework itself closes everything a second time.
static std::vector<std::string> shutdown_steps(const std::vector<std::string>& options)
{
  Start_Options start = probed();
  start.preload = {preload_library("shutdown_probe")};
  std::vector<std::string> args = options;
  args.insert(args.end(), {"-S", recorder("a")});

  Starter_Process starter(args, start);
  end_after(starter, "a starts.");

  std::vector<std::string> texts;
  for (const Record& record : starter.records())
    if (record.file.compare(0, 6, "tests/") == 0)
      texts.push_back(record.text);
  return texts;
}

TEST(service_config_process, closes_the_configurator_after_its_services_and_deletes_the_replaced_reactor_last)
{
  for (const char* const kind : {"tp", "select", "dev_poll", "priority"}) {
    SCOPED_TRACE(kind);
    EXPECT_THAT(shutdown_steps({"--reactor", kind, "--threads", "2"}),
                ElementsAre("a starts.\n", "The services are finalised.\n", "a stops.\n", "a is deleted.\n",
                            "The configurator closes.\n", "The configurator has closed.\n",
                            "The first reactor is deleted.\n"));
  }
}

TEST(service_config_process, leaves_the_reactor_to_the_framework_when_it_replaced_none)
{
  EXPECT_THAT(shutdown_steps({}),
              ElementsAre("a starts.\n", "The services are finalised.\n", "a stops.\n", "a is deleted.\n",
                          "The configurator closes.\n", "The configurator has closed.\n"));
}
